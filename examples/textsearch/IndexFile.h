#pragma once
#include <lorvale/toolkit.h>

#include <functional>
#include <memory>
#include <string>

/// Throws std::runtime_error where there is no file of that path; it says how to make an index.
void requireIndexFile(const std::string& path);

/// The storage in an index file, open.  Throws std::runtime_error, with the path, for what is no such file.
std::unique_ptr<brindle::IAStorage> openIndexFile(const std::string& path, bool forWriting);

/// A new storage in a file of that path.  Throws std::runtime_error, with the path, where none can be made.
std::unique_ptr<brindle::IAStorage> makeIndexFile(const std::string& path);

/// Does something with an index file, and names the file in a failure of that.
void withIndexFile(const std::string& path, const std::function<void()>& work);
