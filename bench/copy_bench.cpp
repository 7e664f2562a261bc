// Copies of a large file, cold: file_copy and file_copy_secure beside what the shell offers.
//
// The file has VELLCORE_BENCH_MIB MiB (512) and lies, with its copies, in VELLCORE_BENCH_FOLDER (the working folder).
// Before every pass the source is dropped from the cache. A pass ends when the copies are on the disk.
//
// Groups: "copy" and "copy_to_three" (nothing is compared), "copy_md5" (source and copy digested, the copy read back).

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "vellcore/file_operations.h"
#include "vellcore/verified_copy.h"

namespace {

/// The source and the names of its copies, in a folder of their own that goes with them.
class CopyFolder {
public:
    CopyFolder() {
        const char* parent = std::getenv("VELLCORE_BENCH_FOLDER");
        folder_ = std::string(parent != nullptr ? parent : ".") + "/vellcore-copy-XXXXXX";
        if (mkdtemp(folder_.data()) == nullptr) std::abort();
        folder_ = std::filesystem::absolute(folder_);
        std::vector<uint64_t> block(1 << 17);
        std::mt19937_64 random(1);
        for (uint64_t& word : block)
            word = random();
        std::ofstream source(path("source"), std::ios::binary);
        for (long i = 0; i < mib(); ++i)
            source.write(reinterpret_cast<const char*>(block.data()), 1 << 20);
    }
    ~CopyFolder() { std::filesystem::remove_all(folder_); }
    CopyFolder(const CopyFolder&) = delete;
    CopyFolder& operator=(const CopyFolder&) = delete;

    std::string path(const std::string& name) const { return folder_ + "/" + name; }
    static long mib() {
        const char* wanted = std::getenv("VELLCORE_BENCH_MIB");
        const long count = wanted != nullptr ? std::atol(wanted) : 0;
        return count > 0 ? count : 512;
    }
    void begin_cold() const {
        for (const char* copy : {"a", "b", "c"})
            std::filesystem::remove(path(copy));
        const int file = open(path("source").c_str(), O_RDONLY);
        fsync(file);
        posix_fadvise(file, 0, 0, POSIX_FADV_DONTNEED);
        close(file);
    }

private:
    std::string folder_;
};

const CopyFolder& files() {
    static const CopyFolder folder;
    return folder;
}

bool force_to_disk(const char* name) {
    const int file = open(files().path(name).c_str(), O_RDONLY);
    const bool is_forced = fdatasync(file) == 0;
    close(file);
    return is_forced;
}

bool shell(const std::string& command) {
    return std::system(("cd " + files().path("") + " && " + command + " >/dev/null").c_str()) == 0;
}

bool copy_ourselves(std::initializer_list<const char*> names) {
    std::vector<std::string> paths;
    for (const char* name : names)
        paths.push_back(files().path(name));
    std::vector<const char*> list;
    for (const std::string& path : paths)
        list.push_back(path.c_str());
    list.push_back(nullptr);
    unsigned long long bytes = 0;
    bool is_done = file_copy(files().path("source").c_str(), list.data(), true, bytes, nullptr, nullptr, nullptr,
                             nullptr, false) == 0;
    for (const char* name : names)
        is_done = is_done && force_to_disk(name);
    return is_done;
}

bool copy_and_compare() {
    unsigned long long bytes = 0;
    md5_state_s md5;
    return file_copy_secure(files().path("source").c_str(), files().path("a").c_str(), false, bytes, md5, 3, nullptr,
                            nullptr) == 0 &&
           force_to_disk("a");
}

void run(benchmark::State& state, bool (*copy)()) {
    for (auto _ : state) {
        state.PauseTiming();
        files().begin_cold();
        state.ResumeTiming();
        if (!copy()) state.SkipWithError("the copy failed");
    }
    state.SetBytesProcessed(state.iterations() * CopyFolder::mib() * (1 << 20));
}

struct Row {
    const char* name;
    bool (*copy)();
};
const Row rows[] = {
    {"copy/vellcore", [] { return copy_ourselves({"a"}); }},
    {"copy/cp", [] { return shell("cp source a && sync -d a"); }},
    {"copy/dd_direct",
     [] { return shell("dd if=source of=a bs=4M iflag=direct oflag=direct conv=fdatasync status=none"); }},
    {"copy_to_three/vellcore",
     [] {
         return copy_ourselves({"a", "b", "c"});
     }},
    {"copy_to_three/cp", [] { return shell("for copy in a b c; do cp source $copy && sync -d $copy; done"); }},
    {"copy_to_three/tee", [] { return shell("tee a b <source >c && sync -d a b c"); }},
    {"copy_md5/vellcore", [] { return copy_and_compare(); }},
    {"copy_md5/cp_md5sum", [] { return shell("cp source a && sync -d a && md5sum source a"); }},
};

const bool is_registered = [] {
    for (const Row& row : rows)
        benchmark::RegisterBenchmark(row.name, run, row.copy)
            ->UseRealTime()
            ->Unit(benchmark::kMillisecond)
            ->Iterations(3);
    return true;
}();

}  // namespace
