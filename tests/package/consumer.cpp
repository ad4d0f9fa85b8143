#include <lorvale/message.h>

#include <iostream>

int main() {
    std::cout << lorvale::Message::verboseVersion() << '\n';
}
