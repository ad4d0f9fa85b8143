#pragma once

namespace lorvale {

/// The order in which classes register themselves.  It counts: of two equally willing classes the one that
/// registered first is taken.  A class names its own rank, so that no list anywhere names all classes.
enum class ClassRank {
    preferred,     ///< the usual format of its kind: directory mailboxes, MIME bodies
    alternative,   ///< another format on this machine: flat mailboxes, older bodies
    remote,        ///< what stands for mail elsewhere
    withoutOrder,  ///< what is not chosen by willingness
};

/// Lets a class of a higher folder register itself at the first use of messages, so that the lower folders have
/// no tie to it.  A namespace-scope object in the source of that class:
///
///   const RegisteredClass kMbox(ClassRank::alternative, [] { storeClasses().registerClass(...); });
///
/// Being made does nothing but take a place in a list.  The objects live as long as the process.
class RegisteredClass {
public:
    RegisteredClass(ClassRank rank, void (*touch)());
    RegisteredClass(const RegisteredClass&) = delete;
    RegisteredClass& operator=(const RegisteredClass&) = delete;

    /// Lets every class that is linked register itself, by rank.
    static void touchAll();

private:
    const ClassRank _rank;
    void (*const _touch)();
    const RegisteredClass* _next;
};

}  // namespace lorvale
