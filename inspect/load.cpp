// SPDX-License-Identifier: Apache-2.0
// Catalogues of other packages, from files.
#include <dlfcn.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <new>
#include <string>

#include "inspect/bounded_text.h"
#include "inspect/vorn_inspect.h"

namespace inspect {
namespace {

constexpr auto kMade = "a catalogue is a file that CMake's vorn_add_package makes, libvorn_NAME_catalogue.so";

// Where the catalogue of a name is installed: beside this library.
std::string installed(const std::string& name) {
    Dl_info here = {};
    if (dladdr(reinterpret_cast<const void*>(&vorn_inspect_load), &here) == 0) return {};
    const std::string library = here.dli_fname;
    return library.substr(0, library.rfind('/') + 1) + "vorn_nac/libvorn_" + name + "_catalogue.so";
}

// A file of the working folder is meant as it stands: dlopen would look for it elsewhere.
std::string file_of(const std::string& given) {
    if (given.find('/') != std::string::npos) return given;
    return access(given.c_str(), F_OK) == 0 ? "./" + given : installed(given);
}

const vorn_catalogue* load(const std::string& given, BoundedText& why) {
    if (given == "nac") return vorn_nac_catalogue();
    const std::string file = file_of(given);
    if (access(file.c_str(), F_OK) != 0) {
        if (file == given) {
            why.add("there is no file ", given.c_str());
        } else {
            why.add("there is neither a file ", given.c_str(), " here nor ", file.c_str());
        }
        why.add("; ", kMade);
        return nullptr;
    }
    void* const library = dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr) {
        // NOLINTNEXTLINE(concurrency-mt-unsafe): in glibc each thread has its own
        why.add(file.c_str(), " cannot be loaded: ", dlerror(), "; ", kMade);
        return nullptr;
    }
    using Catalogue = const vorn_catalogue* (*)();
    const auto catalogue_of = reinterpret_cast<Catalogue>(dlsym(library, "vorn_package_catalogue"));
    if (catalogue_of == nullptr) {
        why.add(file.c_str(), " is a library, but no catalogue: it has no vorn_package_catalogue; ", kMade);
        return nullptr;
    }
    const vorn_catalogue* const catalogue = catalogue_of();
    if (catalogue->tables_version != VORN_TABLES_VERSION) {
        why.add(file.c_str(), " has tables of version ", catalogue->tables_version,
                ", and this library reads version ", std::uint32_t{VORN_TABLES_VERSION},
                "; build it again with the headers of this version");
        return nullptr;
    }
    return catalogue;
}

}  // namespace
}  // namespace inspect

const vorn_catalogue* vorn_inspect_load(const char* path, char* why, std::size_t capacity) {
    inspect::BoundedText text(why, why != nullptr ? capacity : 0);
    if (path == nullptr || *path == '\0') {
        text.add("no file was named; ", inspect::kMade);
        return nullptr;
    }
    try {
        return inspect::load(path, text);
    } catch (const std::bad_alloc&) {
        text.add("no memory for the name of a file");
        return nullptr;
    }
}
