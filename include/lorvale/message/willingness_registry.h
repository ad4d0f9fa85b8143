#pragma once
#include <algorithm>
#include <memory>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

#include "lorvale/platform/mutex.h"

namespace lorvale {

/// Classes of which one is chosen at run time: each says by a number how willing it is.  `Class` is a small
/// value that describes one, with
///   name         its name, the one thing that tells it from the others
///   willingness  a function of the thing in question; 0 means no
/// and whatever its users need to make an object.  Any thread may call any operation; the classes are asked
/// without a lock held, so an answer may take its time and use the registry itself.
template <class Class>
class WillingnessRegistry {
public:
    /// Puts a class behind those already here.  False, and nothing changes, when its name is here already.
    bool registerClass(Class added) {
        const MutexLock lock(_mutex);
        if (indexOf(*_classes, added.name) != _classes->size()) return false;
        auto next = std::make_shared<Classes>(*_classes);
        next->push_back(std::move(added));
        _classes = std::move(next);
        return true;
    }

    /// An unknown name changes nothing.
    void unregisterClass(std::string_view name) {
        const MutexLock lock(_mutex);
        const auto index = indexOf(*_classes, name);
        if (index == _classes->size()) return;
        auto next = std::make_shared<Classes>(*_classes);
        next->erase(next->begin() + static_cast<std::ptrdiff_t>(index));
        _classes = std::move(next);
    }

    /// The class with the highest answer; of equal ones that registered first.  Nullopt when none is willing.
    template <class... Question>
    std::optional<Class> mostWilling(Question&&... question) const {
        const auto classes = snapshot();
        const Class* best = nullptr;
        auto highest = 0.0F;
        for (const Class& candidate : *classes) {
            const auto willingness = static_cast<float>(candidate.willingness(question...));
            if (!(willingness > highest)) continue;
            highest = willingness;
            best = &candidate;
        }
        if (best == nullptr) return std::nullopt;
        return *best;
    }

    std::optional<Class> classNamed(std::string_view name) const {
        const auto classes = snapshot();
        const auto index = indexOf(*classes, name);
        if (index == classes->size()) return std::nullopt;
        return (*classes)[index];
    }

    /// All of them, in the order of registration.
    std::vector<Class> classes() const { return *snapshot(); }

private:
    using Classes = std::vector<Class>;

    static std::size_t indexOf(const Classes& classes, std::string_view name) {
        const auto found =
            std::ranges::find_if(classes, [name](const Class& each) { return each.name == name; });
        return static_cast<std::size_t>(found - classes.begin());
    }

    std::shared_ptr<const Classes> snapshot() const {
        const MutexLock lock(_mutex);
        return _classes;
    }

    mutable Mutex _mutex;
    std::shared_ptr<const Classes> _classes LORVALE_GUARDED_BY(_mutex) = std::make_shared<Classes>();
};

}  // namespace lorvale
