// vell ls

#include <memory>

#include "cli/arguments.h"
#include "commands/ls.h"
#include "ui/translation.h"

namespace tool {

void describe_ls(Arguments& program) {
    const auto options = std::make_shared<LsOptions>();
    const auto is_unfolded = std::make_shared<bool>(false);
    Arguments ls = program.command("ls", tr("help", "list a folder in natural order, image sequences folded"));
    ls.optional_value("PATH", options->path, tr("help", "a folder, or a file (default: .)"));
    ls.optional_value("PATTERN", options->pattern,
                      tr("help", "names to show, with * ? [a-z] \\x; in quotes against the shell"));
    ls.flag("--recursive,-r", options->is_recursive, tr("help", "the folders below too; links are not followed"));
    ls.flag("--all,-a", options->shows_hidden, tr("help", "names with a dot in front too"));
    ls.flag("--ignore-case,-i", options->ignores_case, tr("help", "let the pattern's a match A"));
    ls.flag("--no-fold", *is_unfolded, tr("help", "every file of a sequence on its own line"));
    ls.flag("--json", options->is_json,
            tr("help", "one JSON object per line; a path that is not UTF-8 has all its bytes in \"path_hex\""));
    ls.footer(tr("help",
                 "Unprintable bytes in names are shown as \\n, \\t, \\x1b and so on, a backslash as \\\\.\n"
                 "Exit codes:\n"
                 "  0  listed\n"
                 "  1  the listing cannot be printed\n"
                 "  2  wrong command line\n"
                 "  3  the path does not exist or cannot be read\n"
                 "  4  a folder below it cannot be read; the rest was listed\n"
                 "  5  nothing matches the pattern"));
    ls.run([options, is_unfolded] {
        options->folds = !*is_unfolded;
        return print_listing(*options);
    });
}

}  // namespace tool
