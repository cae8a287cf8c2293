// Draws Phony, Corvel's own character, and writes it as a character file:
//   make_phony OUTPUT.acs

#include <cstdio>
#include <exception>
#include <filesystem>

#include "character/acs/writer.h"
#include "phony.h"

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::fprintf(stderr, "usage: make_phony OUTPUT.acs\n");
        return 2;
    }
    try {
        const std::filesystem::path output = argv[1];
        if (output.has_parent_path()) std::filesystem::create_directories(output.parent_path());
        corvel::acs::writeCharacterFile(corvel::phony::makePhony(), output);
    } catch (const std::exception& e) {
        std::fprintf(stderr, "make_phony: %s\n", e.what());
        return 1;
    }
    return 0;
}
