// A small card to copy, and what a destination holds beside the tool's own files.
#pragma once

#include <sys/stat.h>

#include <filesystem>
#include <map>
#include <random>
#include <string>

#include "support/temporary_folder.h"

namespace card {

inline std::string noise(size_t bytes, unsigned seed) {
    std::mt19937 random(seed);
    std::string text(bytes, '\0');
    for (size_t i = 0; i + 4 <= bytes; i += 4) {
        const auto word = static_cast<uint32_t>(random());
        text.replace(i, 4, reinterpret_cast<const char*>(&word), 4);
    }
    return text;
}

/// Odd names, odd sizes (around the alignment and the block of 2 MiB), empty files and an empty folder below `name`.
inline std::string make(const TemporaryFolder& folder, const std::string& name = "card") {
    const std::string start = name + "/";
    folder.write(start + "DCIM/100/clip.mov", noise((size_t{5} << 20) + 123, 1));
    folder.write(start + "DCIM/100/block.mov", noise(size_t{2} << 20, 2));
    folder.write(start + "DCIM/100/over.mov", noise((size_t{2} << 20) + 1, 3));
    folder.write(start + "DCIM/small", noise(4096, 4));
    folder.write(start + "DCIM/odd", noise(4097, 5));
    folder.write(start + "empty", "");
    folder.write(start + "-dash", "dash");
    folder.write(start + "new\nline", "line");
    folder.write(start + "back\\slash", "slash");
    folder.write(start + "\xFF\xFE", "no text");
    folder.write(start + std::string(255, 'n'), "long");
    std::filesystem::create_directories(folder / (start + "empty folder/inside"));
    return folder / name;
}

/// The same as read_whole_file, for large files.
inline std::string read_at_once(const std::filesystem::path& path) {
    std::string text(std::filesystem::file_size(path), '\0');
    std::ifstream(path, std::ios::binary).read(text.data(), static_cast<std::streamsize>(text.size()));
    return text;
}

/// Path and content of everything below, folders with a "/" at their end. The journal and the lists are left out,
/// unfinished copies are not.
inline std::map<std::string, std::string> contents(const std::string& root) {
    std::map<std::string, std::string> all;
    std::error_code ignored;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(root, ignored)) {
        const std::string path = entry.path().string().substr(root.size() + 1);
        if (entry.is_symlink() || path == ".vell-offload" || (path.ends_with("SUMS") && path.find('/') == path.npos)) {
            continue;
        }
        if (entry.is_directory()) {
            all[path + "/"] = "";
        } else {
            all[path] = entry.is_regular_file() ? read_at_once(entry.path()) : "(no file)";
        }
    }
    return all;
}

inline struct stat facts_of(const std::string& path) {
    struct stat facts {};
    lstat(path.c_str(), &facts);
    return facts;
}

}  // namespace card
