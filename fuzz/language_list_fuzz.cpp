// The file "languages", read from a folder as hosts have it: the menu is whole, and its texts are those of the lines.

#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "vellcore/language.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace {

struct Folder {
    Folder() {
        // One file for each run: a disk would be most of the work.
        const std::filesystem::path memory = "/dev/shm";
        const bool has_memory = std::filesystem::is_directory(memory);
        path = ((has_memory ? memory : std::filesystem::temp_directory_path()) / "languages-XXXXXX").string();
        if (mkdtemp(path.data()) == nullptr) std::abort();
    }
    ~Folder() {
        vl_lang_free();
        std::error_code ignored;
        std::filesystem::remove_all(path, ignored);
    }
    std::string path;
};

void write_list(const std::string& folder, const uint8_t* data, size_t size) {
    FILE* file = std::fopen((folder + "/languages").c_str(), "wb");
    if (file == nullptr || std::fwrite(data, 1, size, file) != size || std::fclose(file) != 0) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const Folder folder;
    write_list(folder.path, data, size);
    if (!vl_lang_init_from(folder.path.c_str())) std::abort();
    const std::string text(reinterpret_cast<const char*>(data), size);
    const vl_lang_enum_item* item = vl_RNA_lang_enum_properties();
    if (item == nullptr) std::abort();
    for (; item->identifier != nullptr; ++item) {
        const std::string fields = ":" + std::string(item->name) + ":" + item->identifier;
        const bool is_described =
            item->value == 0 ? *item->description == '\0' : std::string(item->description) == item->identifier;
        if (item->value < 0 || item->icon != 0 || !is_described || text.find(fields) == std::string::npos) std::abort();
    }
    if (item->value != 0 || item->icon != 0 || *item->name != '\0' || *item->description != '\0') std::abort();
    return 0;
}
