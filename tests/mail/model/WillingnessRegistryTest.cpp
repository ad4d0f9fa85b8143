#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <thread>

#include "lorvale/message/willingness_registry.h"

namespace lorvale {
namespace {

struct Tool {
    std::string name;
    std::function<float(int)> willingness;
};

Tool always(std::string name, float answer) {
    return {std::move(name), [answer](int) { return answer; }};
}

std::string chosen(const WillingnessRegistry<Tool>& registry, int question = 0) {
    const auto best = registry.mostWilling(question);
    return best ? best->name : "none";
}

TEST(WillingnessRegistry, TakesTheHighestAnswerAndOfEqualOnesTheFirst) {
    WillingnessRegistry<Tool> registry;
    registry.registerClass(always("unwilling", 0));
    registry.registerClass(always("hostile", -1));
    registry.registerClass(always("broken", std::numeric_limits<float>::quiet_NaN()));
    EXPECT_EQ(chosen(registry), "none");
    for (const auto* name : {"a", "b"}) EXPECT_TRUE(registry.registerClass(always(name, 0.5F)));
    EXPECT_FALSE(registry.registerClass(always("b", 0.9F))) << "the name is taken";
    EXPECT_EQ(chosen(registry), "a");
    registry.unregisterClass("nobody");
    registry.unregisterClass("a");
    EXPECT_TRUE(registry.registerClass(always("a", 0.5F)));
    EXPECT_EQ(chosen(registry), "b") << "a stands behind it now";
    registry.registerClass({"odd", [](int n) { return n % 2 == 1 ? 1.0F : 0.0F; }});
    EXPECT_EQ(chosen(registry, 3), "odd");
    EXPECT_EQ(chosen(registry, 4), "b");
}

TEST(WillingnessRegistryThreads, AskAndRegisterAtTheSameTime) {
    WillingnessRegistry<Tool> registry;
    registry.registerClass({"base", [&registry](int) { return registry.classes().empty() ? 0.0F : 0.1F; }});
    std::vector<std::jthread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&registry, t] {
            const auto name = std::to_string(t);
            for (int i = 0; i < 500; ++i) {
                registry.registerClass(always(name, 0.5F));
                EXPECT_NE(chosen(registry), "none");
                registry.unregisterClass(name);
            }
        });
    }
    threads.clear();
    EXPECT_EQ(chosen(registry), "base");
}

}  // namespace
}  // namespace lorvale
