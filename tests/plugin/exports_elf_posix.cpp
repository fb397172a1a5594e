// The ELF library's dynamic symbol table holds exactly the nine entry points.

#include <elf.h>
#include <gtest/gtest.h>

#include <cstring>
#include <set>
#include <stdexcept>

#include "plugin_test_util.h"

namespace {

template <class T>
T ReadAt(const std::string& file, uint64_t offset) {
    if (offset > file.size() || file.size() - offset < sizeof(T)) throw std::runtime_error("ELF runs past its end");
    T value;
    std::memcpy(&value, file.data() + offset, sizeof(T));
    return value;
}

// Names of the symbols that the library defines and lets others bind to.
std::set<std::string> ExportedSymbols(const std::string& path) {
    const std::string file = ReadFile(path);
    const auto header = ReadAt<Elf64_Ehdr>(file, 0);
    if (std::memcmp(header.e_ident, ELFMAG, SELFMAG) != 0 || header.e_ident[EI_CLASS] != ELFCLASS64 ||
        header.e_shentsize != sizeof(Elf64_Shdr)) {
        throw std::runtime_error("not a 64-bit ELF file");
    }
    auto section = [&](uint64_t i) { return ReadAt<Elf64_Shdr>(file, header.e_shoff + i * sizeof(Elf64_Shdr)); };
    std::set<std::string> names;
    for (uint64_t i = 0; i < header.e_shnum; ++i) {
        const Elf64_Shdr symbols = section(i);
        if (symbols.sh_type != SHT_DYNSYM) continue;
        const Elf64_Shdr strings = section(symbols.sh_link);
        for (uint64_t s = 1; s < symbols.sh_size / sizeof(Elf64_Sym); ++s) {
            const auto symbol = ReadAt<Elf64_Sym>(file, symbols.sh_offset + s * sizeof(Elf64_Sym));
            if (symbol.st_shndx == SHN_UNDEF || ELF64_ST_BIND(symbol.st_info) == STB_LOCAL) continue;
            const uint64_t name = strings.sh_offset + symbol.st_name;
            if (symbol.st_name >= strings.sh_size || name >= file.size()) throw std::runtime_error("name out of range");
            names.insert(file.c_str() + name);   // c_str ends in a NUL, so a bad name can't run off
        }
    }
    return names;
}

TEST(PluginExports, OnlyTheNineEntryPointsAreExported) {
    const std::set<std::string> expected = {"Create", "Destroy",     "Get",         "Set",       "Open",
                                            "Close",  "DecodeBlock", "SetPosition", "DeleteATag"};
    EXPECT_EQ(ExportedSymbols(FD_PLUGIN_PATH), expected);
}

}  // namespace
