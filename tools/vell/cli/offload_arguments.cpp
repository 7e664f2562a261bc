// vell offload

#include <memory>

#include "cli/arguments.h"
#include "cli/digest_option.h"
#include "commands/offload.h"
#include "ui/translation.h"

namespace tool {
namespace {

constexpr const char* k_footer = marked(
    "help",
    "DEST becomes a copy of what SOURCE holds; a SOURCE that is a file is copied into DEST. Nothing is overwritten,\n"
    "links are not followed. A copy appears under its name when it was read back from the disk and is equal. Run the\n"
    "same command again to finish what was interrupted. docs/offload.md tells more.\n"
    "\n"
    "Exit codes:\n"
    "  0  every file is verified (with --no-verify: copied)\n"
    "  1  some files failed, or a destination was dropped\n"
    "  2  wrong command line, or source and destinations overlap; nothing was begun\n"
    "  3  interrupted; the same command goes on\n"
    "  4  a disk gave back something else than was written\n"
    "  5  not enough space");

}  // namespace

void describe_offload(Arguments& program) {
    struct Values {
        OffloadCommand command;
        std::vector<std::string> digests;
        bool skips_verification = false;
    };
    const auto values = std::make_shared<Values>();
    Arguments command = program.command(
        "offload", tr("help", "copy a file or folder to several disks, read every copy back and compare"));
    command.footer(tr("help", k_footer));
    command.value("SOURCE", values->command.options.source, tr("help", "a file or a folder"));
    command.values("DEST", values->command.options.destinations, tr("help", "1 to 16 folders; missing ones are made"));
    command.repeated_option("--hash", values->digests,
                            tr("help", "md5, sha1, xxh64, xxh3, xxh128 (default: md5,xxh128)"));
    command.flag("--no-verify", values->skips_verification, tr("help", "do not read the copies back"));
    command.flag("--overwrite", values->command.options.overwrites, tr("help", "replace files that differ"));
    command.flag("--quiet", values->command.is_quiet, tr("help", "print failures only"));
    command.flag("--json", values->command.is_json, tr("help", "print one JSON object for each event"));
    command.run([values] {
        values->command.options.digests = parse_digest_set(values->digests, values->command.options.digests);
        values->command.options.verifies = !values->skips_verification;
        return offload(values->command);
    });
}

}  // namespace tool
