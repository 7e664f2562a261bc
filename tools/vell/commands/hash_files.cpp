// Files are read several at a time and printed in order: a result waits for those before it.

#include "commands/hash_files.h"

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <map>
#include <mutex>
#include <thread>

#include "offload/file_digests.h"
#include "offload/folder_walk.h"
#include "offload/parallel.h"
#include "offload/sum_list.h"
#include "ui/file_names.h"
#include "ui/interrupt.h"
#include "ui/problem_text.h"
#include "ui/translation.h"

namespace tool {
namespace {

struct Input {
    std::string path;
    Problem problem{};  ///< known already
};

/// The files that a path means.
void add_inputs(const std::string& path, std::vector<Input>& inputs) {
    struct stat facts {};
    if (stat(path.c_str(), &facts) != 0) {
        inputs.push_back({path, system_problem(errno)});
        return;
    }
    if (!S_ISDIR(facts.st_mode)) {
        inputs.push_back({path, {}});
        return;
    }
    const Descriptor root(disk_calls.open(AT_FDCWD, path.c_str(), O_RDONLY | O_DIRECTORY, 0));
    if (!root.is_open()) {
        inputs.push_back({path, system_problem(errno)});
        return;
    }
    const FolderContents contents = list_tree(root.get(), nullptr, is_interrupted);
    const std::string start = path.back() == '/' ? path : path + "/";
    for (const FileEntry& file : contents.files)
        inputs.push_back({start + file.path, {}});
    for (const LeftOut& what : contents.left_out) {
        if (what.is_failure) inputs.push_back({start + what.path, what.reason});
    }
}

/// Prints results in the order of their indices.
class OrderedPrinter {
public:
    OrderedPrinter(const std::vector<Input>& inputs, const DigestSet& kinds) : inputs_(inputs), kinds_(kinds) {}

    void add(size_t index, FileDigests result) {
        const std::lock_guard lock(lock_);
        waiting_.emplace(index, std::move(result));
        while (!waiting_.empty() && waiting_.begin()->first == next_) {
            print(waiting_.begin()->second);
            waiting_.erase(waiting_.begin());
            ++next_;
        }
    }
    [[nodiscard]] bool has_failure() const { return has_failure_; }

private:
    void print(const FileDigests& result) {
        const std::string& path = inputs_[next_].path;
        if (result.problem) {
            std::fprintf(stderr, "vell: %s: %s\n", printable_name(path).c_str(), problem_text(result.problem).c_str());
            has_failure_ = true;
            return;
        }
        const std::vector<DigestKind> kinds = kinds_.kinds();
        for (const DigestKind kind : kinds) {
            const std::string& digest = digest_of(result.digests, kind);
            const bool is_plain = kinds.size() == 1 && kind != DigestKind::xxh3;
            const std::string line =
                is_plain ? format_sum_line(kind, digest, path) : format_tagged_line(kind, digest, path);
            std::fwrite(line.data(), 1, line.size(), stdout);
        }
    }

    const std::vector<Input>& inputs_;
    const DigestSet kinds_;
    std::mutex lock_;  ///< guards what follows and keeps lines whole
    size_t next_ = 0;
    std::map<size_t, FileDigests> waiting_;
    bool has_failure_ = false;
};

}  // namespace

int print_digests(const HashOptions& options) {
    catch_interrupts();
    std::vector<Input> inputs;
    for (const std::string& path : options.paths)
        add_inputs(path, inputs);
    OrderedPrinter printer(inputs, options.digests);
    for_each_index(inputs.size(), std::max(2U, std::thread::hardware_concurrency()), [&](size_t index) {
        FileDigests result{{}, 0, inputs[index].problem};
        if (!result.problem) {
            result =
                digests_of_file(AT_FDCWD, inputs[index].path, options.digests, /*follows_link*/ true, interrupt_flag());
        }
        if (is_interrupted()) return false;
        printer.add(index, std::move(result));
        return true;
    });
    if (std::fflush(stdout) != 0) throw Failure{k_exit_other, tr("problem", "standard output: cannot be written")};
    if (is_interrupted()) return k_exit_interrupted;
    return printer.has_failure() ? k_exit_other : k_exit_done;
}

}  // namespace tool
