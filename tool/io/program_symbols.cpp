// SPDX-License-Identifier: Apache-2.0
#include "tool/io/program_symbols.h"

#include <elf.h>
#include <fmt/format.h>

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string_view>

#include "tool/commands.h"

namespace tool {
namespace {

constexpr std::size_t kLongestName = 4096;
constexpr std::size_t kMostNeeded = 1000;

// Every offset of the file is checked against its size.
class ElfFile {
  public:
    explicit ElfFile(const std::string& file) : name_(file) {
        std::ifstream stream(file, std::ios::binary);
        if (!stream) throw CommandError(kTrouble, fmt::format("{}: cannot be read", file));
        bytes_.assign(std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>());
        header_ = at<Elf64_Ehdr>(0);
        constexpr unsigned char kOrder =
            std::endian::native == std::endian::little ? ELFDATA2LSB : ELFDATA2MSB;
        if (std::memcmp(header_.e_ident, ELFMAG, SELFMAG) != 0 || header_.e_ident[EI_CLASS] != ELFCLASS64 ||
            header_.e_ident[EI_DATA] != kOrder) {
            throw bad();
        }
    }

    std::size_t sections() const { return header_.e_shnum; }
    Elf64_Shdr section(std::size_t index) const {
        return at<Elf64_Shdr>(header_.e_shoff + index * sizeof(Elf64_Shdr));
    }

    template <class Entry, class Use>
    void each(const Elf64_Shdr& table, Use&& use) const {
        for (std::uint64_t offset = 0; offset + sizeof(Entry) <= table.sh_size; offset += sizeof(Entry)) {
            use(at<Entry>(table.sh_offset + offset));
        }
    }

    std::string text(const Elf64_Shdr& strings, std::uint64_t offset) const {
        const std::uint64_t from = strings.sh_offset + offset;
        if (from >= bytes_.size()) throw bad();
        // A longer name is none that anybody asks for.
        const std::string_view text = std::string_view(bytes_).substr(from, kLongestName);
        return std::string(text.substr(0, text.find('\0')));
    }

  private:
    CommandError bad() const {
        return {kBadData, fmt::format("{}: not a program of this kind of machine", name_)};
    }

    template <class T>
    T at(std::uint64_t offset) const {
        if (bytes_.size() < sizeof(T) || offset > bytes_.size() - sizeof(T)) throw bad();
        T value;
        std::memcpy(&value, bytes_.data() + offset, sizeof value);
        return value;
    }

    std::string name_;
    std::string bytes_;
    Elf64_Ehdr header_ = {};
};

}  // namespace

ProgramSymbols program_symbols(const std::string& file, const std::set<std::string>& names) {
    const ElfFile elf(file);
    ProgramSymbols found;
    std::set<std::string> all;
    for (std::size_t i = 0; i < elf.sections(); ++i) {
        const Elf64_Shdr table = elf.section(i);
        if (table.sh_type != SHT_DYNSYM && table.sh_type != SHT_SYMTAB && table.sh_type != SHT_DYNAMIC)
            continue;
        const Elf64_Shdr strings = elf.section(table.sh_link);
        if (table.sh_type == SHT_DYNAMIC) {
            elf.each<Elf64_Dyn>(table, [&](const Elf64_Dyn& entry) {
                if (entry.d_tag == DT_NEEDED && found.needed.size() < kMostNeeded)
                    found.needed.push_back(elf.text(strings, entry.d_un.d_val));
            });
            continue;
        }
        if (table.sh_type == SHT_SYMTAB) found.stripped = false;
        auto& list = table.sh_type == SHT_DYNSYM ? found.exported : all;
        elf.each<Elf64_Sym>(table, [&](const Elf64_Sym& symbol) {
            if (symbol.st_shndx == SHN_UNDEF || symbol.st_name == 0) return;
            const std::string name = elf.text(strings, symbol.st_name);
            if (names.contains(name)) list.insert(name);
        });
    }
    for (const std::string& name : all) {
        if (!found.exported.contains(name)) found.kept.insert(name);
    }
    return found;
}

}  // namespace tool
