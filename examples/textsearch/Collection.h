#pragma once
#include <filesystem>
#include <functional>
#include <istream>
#include <string>

/// One document or one topic of a collection.
struct Item {
    std::string id;
    std::string text;
};
using UseItem = std::function<void(Item)>;

/// Reads the items of a stream in one of two forms, told apart by the first character that is no blank:
///
///   <DOC><DOCNO> id </DOCNO> text </DOC>   and   <top><num> Number: id <title> text </top>; marks in the text
///   go
///   {"id": "id", "title": "text", "text": "text"}   one object a line; "_id", "docno" and "num" are names for
///   "id", too
///
/// An item without an id is left out.  Throws std::runtime_error for a stream in neither form.
void readItems(std::istream& in, const UseItem& use);

/// The same for a file; a folder's items are its regular files, however deep, named by their paths in it.
void readSource(const std::filesystem::path& path, const UseItem& use);
