#pragma once
#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace lorvale::testing {

/// A server that a script of this folder starts.  The script prints one line of NAME=VALUE words when the
/// server answers, and serves until its standard input ends: with this object, or with the process.
class ServerScript {
public:
    ServerScript(const std::string& name, const std::vector<std::string>& arguments);
    ~ServerScript();
    ServerScript(const ServerScript&) = delete;
    ServerScript& operator=(const ServerScript&) = delete;

    /// Empty when it runs, else why the server is not there (exit status 77).  One that is there and does not
    /// start throws std::runtime_error in the constructor.
    const std::string& whyNot() const { return _whyNot; }
    const std::string& told(const std::string& name) const { return _told.at(name); }
    std::uint16_t port(const std::string& name) const {
        return static_cast<std::uint16_t>(std::stoi(_told.at(name)));
    }

private:
    std::string _whyNot;
    std::map<std::string, std::string> _told;
    int _process = 0, _input = -1;  // the script, and what it reads
};

}  // namespace lorvale::testing
