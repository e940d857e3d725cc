// SPDX-License-Identifier: MIT
#include "ElfFile.h"

#include <elf.h>
#include <link.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <stdexcept>

namespace {

class Image {
public:
    explicit Image(const std::string& path) : m_File(std::fopen(path.c_str(), "rb"), std::fclose) {
        if (m_File == nullptr) throw std::runtime_error(std::strerror(errno));
    }

    // Reads one thing of type T at an offset; false where the file ends.
    template <class T>
    bool ReadAt(T& thing, std::uint64_t offset) {
        errno = 0;
        return fseeko(m_File.get(), static_cast<off_t>(offset), SEEK_SET) == 0 &&
               std::fread(&thing, sizeof thing, 1, m_File.get()) == 1;
    }
    std::string TextAt(std::uint64_t offset) {
        std::string text;
        if (fseeko(m_File.get(), static_cast<off_t>(offset), SEEK_SET) != 0) return text;
        for (int c; (c = std::fgetc(m_File.get())) > 0;) text += static_cast<char>(c);
        return text;
    }

private:
    std::unique_ptr<std::FILE, int (*)(std::FILE*)> m_File;
};

struct Ident {
    unsigned char m_Ident[EI_NIDENT];
    std::uint16_t m_Type; // in both word sizes in the same place
    std::uint16_t m_Machine;
};

} // namespace

std::string WhyNotALibrary(const std::string& path) {
    const std::string name = "'" + path + "'";
    Ident ident{};
    try {
        Image image(path);
        if (!image.ReadAt(ident, 0)) {
            return errno != 0 ? "cannot read " + name + ": " + std::strerror(errno)
                              : name + " is not a shared library: it is too short";
        }
    } catch (const std::runtime_error& error) {
        return "cannot read " + name + ": " + error.what();
    }
    if (std::memcmp(ident.m_Ident, ELFMAG, SELFMAG) != 0) return name + " is not a shared library: it is no ELF file";
    const bool is32 = ident.m_Ident[EI_CLASS] == ELFCLASS32 && ident.m_Machine == EM_386;
    const bool is64 = ident.m_Ident[EI_CLASS] == ELFCLASS64 && ident.m_Machine == EM_X86_64;
    if (!is32 && !is64) return name + " is for another machine (ELF machine " + std::to_string(ident.m_Machine) + ")";
    if (ident.m_Type != ET_DYN) return name + " is not a shared library: it is a program or an object file";
    if ((kWordSize == 32) == is32) return "";
    return name + " is a " + (is32 ? "32" : "64") + "-bit library and this is the " + std::to_string(kWordSize) +
           "-bit qfcheck: use the qfcheck of the " + (is32 ? "i386" : "x86_64") + " build";
}

std::vector<ExportedName> ExportedNames(const std::string& path) {
    Image image(path);
    ElfW(Ehdr) header{};
    if (!image.ReadAt(header, 0)) throw std::runtime_error("its header is cut off");
    const auto section = [&](std::uint64_t index) {
        ElfW(Shdr) found{};
        if (index >= header.e_shnum || !image.ReadAt(found, header.e_shoff + index * sizeof found)) {
            throw std::runtime_error("its section headers are missing or damaged");
        }
        return found;
    };
    std::vector<ExportedName> names;
    for (unsigned i = 0; i < header.e_shnum; ++i) {
        const ElfW(Shdr) symbols = section(i);
        if (symbols.sh_type != SHT_DYNSYM) continue;
        const ElfW(Shdr) texts = section(symbols.sh_link);
        for (std::uint64_t at = 0; at + sizeof(ElfW(Sym)) <= symbols.sh_size; at += sizeof(ElfW(Sym))) {
            ElfW(Sym) symbol{};
            if (!image.ReadAt(symbol, symbols.sh_offset + at)) throw std::runtime_error("its symbols are cut off");
            const unsigned binding = symbol.st_info >> 4U;
            const unsigned type = symbol.st_info & 0xFU;
            if (symbol.st_shndx == SHN_UNDEF || binding == STB_LOCAL) continue;
            names.push_back({image.TextAt(texts.sh_offset + symbol.st_name), type == STT_FUNC});
        }
        return names;
    }
    throw std::runtime_error("its section headers are missing or damaged");
}
