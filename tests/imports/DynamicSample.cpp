// Deliberately linked against the C++ runtime DLLs: the import check must reject it.
#include <iostream>
#include <string>

int main(int argc, char**) {
    std::string text(static_cast<size_t>(argc), 'x');
    std::cout << text << std::endl;
    return 0;
}
