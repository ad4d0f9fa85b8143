#pragma once
#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "Mailbox.h"
#include "lorvale/toolkit.h"

namespace mailhost {

/// What the toolkit makes terms of: English, with the lists that come with the library where they are there.
std::unique_ptr<brindle::EnglishAnalysis> englishAnalysis();

/// The decoded body of a message without its attachments.  Throws Failure when it cannot be had.
std::string wordsOf(lorvale::Message& message);

/// How much of a message's text counts beside its subject and its sender: all of it, or what its writer wrote.
enum class Extent { whole, own };
/// Throws Failure for a message that cannot be read.
std::string textAbout(lorvale::Message& message, Extent extent);

/// An index of messages in memory, with lists and vectors, for the run of one command.  Messages have numbers
/// in the order in which they are added.
class MessageIndex {
public:
    MessageIndex();
    MessageIndex(const MessageIndex&) = delete;
    MessageIndex& operator=(const MessageIndex&) = delete;

    /// Adds all messages of a mailbox, under a progress bar; those that cannot be read, and those without a
    /// word, count as empty.  Answers how many cannot be read.
    std::size_t add(Mailbox& mailbox, Extent extent);
    std::size_t count() const { return _count; }
    brindle::InVecIndex& index() { return *_index; }

    static std::unique_ptr<brindle::StringDoc> documentOf(std::size_t number);
    static std::size_t numberOf(const brindle::IADoc& document);

private:
    class Corpus;

    std::unique_ptr<brindle::IAStorage> _storage;
    Corpus* _corpus = nullptr;  // the index's
    std::unique_ptr<brindle::InVecIndex> _index;
    std::size_t _count = 0;
};

/// "0.8431", as tables and JSON have it.
std::string scoreText(float score);

}  // namespace mailhost
