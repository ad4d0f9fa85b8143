#pragma once
#include <string_view>

namespace lorvale {

/// Makes a class of a higher folder known to the message layer by name, so that the lower folder has no
/// link-time tie to it.  A namespace-scope object in the source of that class:
///
///   const NamedClass kMbox("BerkeleyMbox", [] { MessageStore::storeClasses().registerClass(...); });
///
/// Being made does nothing but take a place in a list; `touch` runs later, when the class is first looked up,
/// and may run more than once.  The objects live as long as the process.
class NamedClass {
public:
    NamedClass(std::string_view name, void (*touch)());
    NamedClass(const NamedClass&) = delete;
    NamedClass& operator=(const NamedClass&) = delete;

    /// Lets a class register itself wherever it belongs.  False when no class of that name is linked.
    static bool touchClassNamed(std::string_view name);

private:
    const std::string_view _name;
    void (*const _touch)();
    const NamedClass* _next;
};

}  // namespace lorvale
