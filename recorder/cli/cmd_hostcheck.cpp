// lenswire hostcheck PROGRAM [LIBRARY...]
//
// Which services of the host a program would lack when it loads the library. Read from symbol tables; nothing
// is run.
#include <elf.h>
#include <fcntl.h>
#include <gelf.h>
#include <libelf.h>

#include <CLI/CLI.hpp>
#include <memory>
#include <set>

#include "lenswire/host_services.h"
#include "recorder/cli/command_line.h"
#include "recorder/support/descriptor.h"
#include "recorder/support/failure.h"

namespace lenswire::recorder {
namespace {

constexpr const char* kServices[] = {
#define LENSWIRE_HOSTCHECK_NAME(name) #name,
    LENSWIRE_HOST_SERVICES(LENSWIRE_HOSTCHECK_NAME) LENSWIRE_HOST_TABLES(LENSWIRE_HOSTCHECK_NAME)
#undef LENSWIRE_HOSTCHECK_NAME
};

struct HostcheckOptions {
    std::vector<std::string> files;
};

// A file as libelf reads it, 32 or 64 bits, of either byte order.
class ElfFile {
  public:
    explicit ElfFile(const std::string& path) : descriptor_(open(path.c_str(), O_RDONLY | O_CLOEXEC)) {
        elf_version(EV_CURRENT);
        if (descriptor_.number() < 0) throw bad_input(path + ": cannot be read");
        elf_ = elf_begin(descriptor_.number(), ELF_C_READ, nullptr);
        if (elf_kind(elf_) == ELF_K_ELF) return;
        elf_end(elf_);
        throw bad_input(path + ": is no ELF file");
    }
    ~ElfFile() { elf_end(elf_); }
    ElfFile(const ElfFile&) = delete;
    ElfFile& operator=(const ElfFile&) = delete;

    // The names that the file defines for others. Those of a damaged file end where the damage begins.
    std::set<std::string> exports() const {
        std::set<std::string> names;
        for (Elf_Scn* section = nullptr; (section = elf_nextscn(elf_, section)) != nullptr;) {
            GElf_Shdr header;
            if (gelf_getshdr(section, &header) != nullptr && header.sh_type == SHT_DYNSYM)
                add_exports(section, header, names);
        }
        return names;
    }

  private:
    void add_exports(Elf_Scn* section, const GElf_Shdr& header, std::set<std::string>& names) const {
        Elf_Data* data = elf_getdata(section, nullptr);
        GElf_Sym symbol;
        for (int i = 0; data != nullptr && gelf_getsym(data, i, &symbol) != nullptr; ++i) {
            const char* name = elf_strptr(elf_, header.sh_link, symbol.st_name);
            if (name != nullptr && symbol.st_shndx != SHN_UNDEF && GELF_ST_BIND(symbol.st_info) != STB_LOCAL)
                names.insert(name);
        }
    }

    Descriptor descriptor_;
    Elf* elf_ = nullptr;
};

std::vector<std::string> missing_services(const std::set<std::string>& exports) {
    std::vector<std::string> missing;
    for (const char* service : kServices) {
        if (!exports.contains(service)) missing.emplace_back(service);
    }
    return missing;
}

int hostcheck(const HostcheckOptions& options, const CommonOptions& common, Console& console) {
    std::set<std::string> exports;
    for (const std::string& file : options.files) exports.merge(ElfFile(file).exports());
    const auto missing = missing_services(exports);
    if (common.json) {
        console.print(document({{"program", options.files[0]}, {"missing", missing}}));
    } else {
        for (const std::string& service : missing) console.line(service);
    }
    if (missing.empty()) return kDone;
    const std::string hint = exports.empty() ? "; it exports nothing at all: link it with -rdynamic" : "";
    console.error_line(options.files[0] + " lacks " + std::to_string(missing.size()) + " of " +
                       std::to_string(std::size(kServices)) + " services" + hint);
    return kFailed;
}

}  // namespace

void add_hostcheck(CLI::App& app, CommonOptions& common, Command& chosen) {
    auto options = std::make_shared<HostcheckOptions>();
    CLI::App* command = app.add_subcommand("hostcheck", "List the services that a program lacks as a host");
    command->add_option("PROGRAM", options->files, "The program, and libraries of its own that have services")
        ->required();
    run_when_chosen(command, options, common, chosen, hostcheck);
}

}  // namespace lenswire::recorder
