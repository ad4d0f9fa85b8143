#include "mail/imap/SentNotes.h"

#include <utility>

#include "base/text/Crc32.h"
#include "lorvale/platform/log.h"
#include "lorvale/values/text.h"
#include "mail/imap/Digits.h"
#include "mail/imap/StoreNames.h"

namespace lorvale {

SentNotes::SentNotes(std::string path, const std::vector<Data>& queue)
    : _path(std::move(path)), _has(queue.size()) {
    for (const auto& text : queue)
        _lines.push_back(formatText("%d %d %d", _lines.size(), text.size(), crc32(text.view())));
    const auto notes = FileSystem::current().readFile(_path).value_or(Data());
    _isEmpty = notes.empty();
    for (const auto line : split(notes.view(), '\n')) {
        const auto place = wholeNumber<std::size_t>(line.substr(0, line.find(' ')));
        if (place && *place < _lines.size() && line == _lines[*place]) _has[*place] = true;
    }
}

void SentNotes::add(std::size_t place) {
    if (_has[place]) return;
    _has[place] = true;
    _isEmpty = false;
    FileStatus status;
    if (!_file)
        _file = FileSystem::current().openForWriting(_path, WriteMode::append, kMirrorFileMode, &status);
    if (_file) status = _file->write(_lines[place] + '\n');
    if (!status) log("%@", status.text());
}

void SentNotes::clear() {
    if (_isEmpty) return;
    FileStatus status;
    (void)FileSystem::current().openForWriting(_path, WriteMode::truncate, kMirrorFileMode, &status);
    if (!status) log("%@", status.text());
}

}  // namespace lorvale
