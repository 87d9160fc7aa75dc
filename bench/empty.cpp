// The smallest C++ program that uses the C++ library, which it loads as most programs do.
#include <iostream>
#include <string>

static std::string text(40, 'x');

int main() {
    return text.size() == 40 ? 0 : static_cast<int>(std::cout.tellp());
}
