// vell verify

#include <memory>

#include "cli/arguments.h"
#include "cli/digest_option.h"
#include "commands/verify.h"
#include "ui/translation.h"

namespace tool {

void describe_verify(Arguments& program) {
    struct Values {
        VerifyOptions options;
        std::vector<std::string> digests;
    };
    const auto values = std::make_shared<Values>();
    Arguments command = program.command("verify", tr("help", "tell what is missing, changed or new in a folder"));
    command.footer(tr(
        "help",
        "The folder's files are compared with what an offload recorded there, or with a list as md5sum, sha1sum and\n"
        "xxhsum write it: sizes first, then digests, read from the disk and not from memory.\n"
        "\n"
        "Exit codes:\n"
        "  0  nothing is missing or changed; files may be new\n"
        "  1  some files cannot be read\n"
        "  2  wrong command line, or there is nothing to compare with\n"
        "  3  interrupted\n"
        "  4  files are missing or changed"));
    command.value("DIR", values->options.folder, tr("help", "the folder"));
    command.option("--list", values->options.list, tr("help", "a list of digests with paths relative to DIR"));
    command.repeated_option("--hash", values->digests,
                            tr("help", "digests to compare (default: the fastest on record)"));
    command.flag("--quiet", values->options.is_quiet, tr("help", "print only what is missing, changed or unreadable"));
    command.flag("--json", values->options.is_json, tr("help", "print one JSON object for each file"));
    command.run([values] {
        values->options.digests = parse_digest_set(values->digests, {});
        return verify(values->options);
    });
}

}  // namespace tool
