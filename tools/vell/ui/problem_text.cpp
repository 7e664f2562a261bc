#include "ui/problem_text.h"

#include <sys/stat.h>

#include "offload/journal.h"
#include "ui/byte_size.h"
#include "ui/error_text.h"
#include "ui/file_names.h"
#include "ui/translation.h"

namespace tool {
namespace {

std::string reading_text(const Problem& problem) {
    const std::string error = error_text(problem.error);
    return problem.kind == ProblemKind::unreadable
               ? formatted(tr("problem", "cannot be read: %s"), error.c_str())
               : formatted(tr("problem", "cannot be read at byte %llu: %s"), number(problem.first), error.c_str());
}

/// Problems of one file while it is copied, compared or read.
std::string file_problem_text(const Problem& problem) {
    const auto first = number(problem.first), second = number(problem.second);
    switch (problem.kind) {
        case ProblemKind::unreadable:
        case ProblemKind::unreadable_at:
            return reading_text(problem);
        case ProblemKind::ended_early:
            return formatted(tr("problem", "ends at byte %llu: it shrank while it was copied"), first);
        case ProblemKind::grew:
            return tr("problem", "grew while it was copied");
        case ProblemKind::shrank:
            return tr("problem", "shrank while it was copied");
        case ProblemKind::changed:
            return tr("problem", "changed while it was copied");
        case ProblemKind::not_regular:
            return tr("problem", "is not a regular file");
        case ProblemKind::other_kind:
            return formatted(tr("problem", "there is %s of that name"), kind_text(problem.mode));
        case ProblemKind::other_size:
            return formatted(
                tr("problem", "another file is there, of %llu bytes instead of %llu (--overwrite replaces it)"), first,
                second);
        case ProblemKind::other_content:
            return formatted(
                tr("problem", "another file is there, which differs from byte %llu on (--overwrite replaces it)"),
                first);
        case ProblemKind::read_back:
            return formatted(
                tr("problem", "the disk gives back something else than was written, between byte %llu and %llu"), first,
                second);
        case ProblemKind::name_taken:
            return tr("problem", "a file of that name has appeared meanwhile");
        default:
            return "";
    }
}

/// Problems of a destination as a whole, and reasons to leave something out.
std::string folder_problem_text(const Problem& problem) {
    const std::string error = problem.error != 0 ? error_text(problem.error) : "";
    switch (problem.kind) {
        case ProblemKind::folder_unsynced:
            return formatted(tr("problem", "its folder cannot be written to disk: %s"), error.c_str());
        case ProblemKind::journal_damaged:
            return formatted(
                tr("problem", "%llu damaged or foreign lines do not count; what they told of is proven again"),
                number(problem.first));
        case ProblemKind::journal_unwritable:
            return formatted(tr("problem", "%s cannot be written: %s"), k_journal_name, error.c_str());
        case ProblemKind::journal_unusable:
            return problem.detail + ": " + error;
        case ProblemKind::destination_in_use:
            return tr("problem", "another offload is at work here");
        case ProblemKind::folder_gone:
            return tr("problem", "the folder is gone");
        case ProblemKind::unlistable:
            return formatted(tr("problem", "cannot be listed: %s"), error.c_str());
        case ProblemKind::special_file:
            return kind_text(problem.mode);
        case ProblemKind::own_name:
            return tr("problem", "a destination keeps a file of its own under this name");
        case ProblemKind::offload_leftover:
            return tr("problem", "left by an offload");
        default:
            return "";
    }
}

/// Why a job cannot begin.
std::string refusal_text(const Problem& problem) {
    switch (problem.kind) {
        case ProblemKind::dangling_link:
            return tr("problem", "is a link to nothing");
        case ProblemKind::not_a_folder:
            return tr("problem", "is not a folder");
        case ProblemKind::unsuitable_kind:
            return formatted(tr("problem", "is %s"), kind_text(problem.mode));
        case ProblemKind::too_many_destinations:
            return formatted(tr("problem", "%llu destinations: %llu are the most"), number(problem.first),
                             number(problem.second));
        case ProblemKind::unnamed_destination:
            return tr("problem", "a destination has no name");
        case ProblemKind::inside_source:
            return tr("problem", "is the source or lies in it");
        case ProblemKind::source_inside:
            return tr("problem", "the source lies in it");
        case ProblemKind::no_space:
            return formatted(tr("problem", "%s are needed on this volume, %s are free"),
                             format_byte_size(problem.first).c_str(), format_byte_size(problem.second).c_str());
        default:
            return "";
    }
}

}  // namespace

std::string problem_text(const Problem& problem) {
    switch (problem.kind) {
        case ProblemKind::none:
            return "";
        case ProblemKind::system:
        case ProblemKind::source_unopenable:
            return error_text(problem.error);
        case ProblemKind::exception:
            return problem.detail;
        case ProblemKind::interrupted:
            return tr("problem", "interrupted");
        default:
            break;
    }
    std::string text = file_problem_text(problem);
    if (text.empty()) text = folder_problem_text(problem);
    return text.empty() ? refusal_text(problem) : text;
}

const char* kind_text(mode_t mode) {
    if (S_ISLNK(mode)) return tr("kind of file", "a symbolic link");
    if (S_ISSOCK(mode)) return tr("kind of file", "a socket");
    if (S_ISFIFO(mode)) return tr("kind of file", "a pipe");
    if (S_ISDIR(mode)) return tr("kind of file", "a folder");
    if (S_ISREG(mode)) return tr("kind of file", "a file");
    return tr("kind of file", "a device");
}

Failure failure_of(const JobRefused& refused) {
    const ProblemKind kind = refused.problem.kind;
    const int code = kind == ProblemKind::no_space            ? k_exit_no_space
                     : kind == ProblemKind::source_unopenable ? k_exit_incomplete
                                                              : k_exit_command_line;
    const std::string path = printable_name(refused.path);
    if (kind == ProblemKind::destinations_overlap) {
        return {code, formatted(tr("problem", "%s and %s: two destinations are one, or one lies in the other"),
                                path.c_str(), printable_name(refused.other).c_str())};
    }
    return {code, (path.empty() ? "" : path + ": ") + problem_text(refused.problem)};
}

}  // namespace tool
