// What went wrong, as data. The texts for people are made where they are printed (ui/problem_text.h).
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>

namespace tool {

enum class ProblemKind : uint8_t {
    none,
    system,              ///< `error` says it all
    exception,           ///< `detail` says it all: out of memory, no more threads
    interrupted,         ///< the job was cancelled
    unreadable,          ///< `error`
    unreadable_at,       ///< `error`; first: byte
    ended_early,         ///< first: byte
    grew,                ///< the source, while it was copied
    shrank,              ///< the same
    changed,             ///< the same
    not_regular,         ///< the file to read
    other_kind,          ///< at the destination; `mode`: what it is
    other_size,          ///< at the destination; first: its bytes, second: the source's
    other_content,       ///< at the destination; first: byte
    read_back,           ///< data read back differs; first: byte, second: end
    name_taken,          ///< a file with that name appeared during the copy
    folder_unsynced,     ///< `error`
    journal_damaged,     ///< first: lines that do not count
    journal_unwritable,  ///< `error`
    journal_unusable,    ///< `error`; `detail`: path of the journal
    destination_in_use,  ///< by another offload
    folder_gone,         ///< the destination's
    unlistable,          ///< `error`; a folder of the source
    special_file,        ///< left out; `mode`: what it is
    own_name,            ///< the destination needs the name for a file of its own
    offload_leftover,    ///< left out: made by an offload
    dangling_link,
    not_a_folder,
    unsuitable_kind,        ///< neither a file nor a folder; `mode`: what it is
    too_many_destinations,  ///< first: how many, second: the maximum
    unnamed_destination,
    inside_source,         ///< the destination is the source or lies in it
    source_inside,         ///< the source lies in the destination
    destinations_overlap,  ///< two destinations are one, or one lies in the other
    no_space,              ///< first: bytes needed, second: bytes free
    source_unopenable,     ///< `error`
};

struct Problem {
    ProblemKind kind = ProblemKind::none;
    int error = 0;  ///< the system's error number
    uint64_t first = 0, second = 0;
    mode_t mode = 0;
    std::string detail{};
    explicit operator bool() const { return kind != ProblemKind::none; }
};

[[nodiscard]] inline Problem system_problem(int error) {
    return {.kind = ProblemKind::system, .error = error};
}
[[nodiscard]] inline Problem problem_with(ProblemKind kind, int error) {
    return {.kind = kind, .error = error};
}
[[nodiscard]] inline Problem exception_problem(const char* text) {
    return {.kind = ProblemKind::exception, .detail = text};
}

/// Thrown when a job cannot begin; nothing was created.
struct JobRefused {
    Problem problem;
    std::string path{};   ///< what it is about; empty: the job as a whole
    std::string other{};  ///< the second of two paths
};

}  // namespace tool
