// vell hash

#include <memory>

#include "cli/arguments.h"
#include "cli/digest_option.h"
#include "commands/hash_files.h"
#include "ui/translation.h"

namespace tool {

void describe_hash(Arguments& program) {
    struct Values {
        HashOptions options;
        std::vector<std::string> digests;
    };
    const auto values = std::make_shared<Values>();
    Arguments command =
        program.command("hash", tr("help", "print the digests of files as md5sum does, several files at a time"));
    command.footer(tr(
        "help",
        "One kind of digest gives the lines of md5sum, sha1sum or xxhsum; several, and xxh3, give lines that name it:\n"
        "\"MD5 (path) = digest\". All of these programs check such lines.\n"
        "\n"
        "Exit codes:\n"
        "  0  done\n"
        "  1  some files cannot be read\n"
        "  2  wrong command line\n"
        "  3  interrupted"));
    command.values("PATH", values->options.paths, tr("help", "files, and folders with everything below them"));
    command.repeated_option("--hash", values->digests, tr("help", "md5, sha1, xxh64, xxh3, xxh128 (default: md5)"));
    command.run([values] {
        values->options.digests = parse_digest_set(values->digests, values->options.digests);
        return print_digests(values->options);
    });
}

}  // namespace tool
