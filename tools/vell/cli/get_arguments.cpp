// vell get

#include <algorithm>
#include <cctype>
#include <memory>

#include "cli/arguments.h"
#include "commands/get.h"
#include "ui/translation.h"

namespace tool {
namespace {

constexpr const char* k_footer = marked(
    "help",
    "FILE appears when it is whole. Until then the data is in FILE.vell-part: the same command goes on there after\n"
    "a cut or an interruption, if the server still has the same file. A cut connection is tried again by itself,\n"
    "up to five times. Digests are those of the data read back from the disk.\n"
    "\n"
    "Exit codes:\n"
    "  0  the file is there\n"
    "  1  it could not be downloaded or written\n"
    "  2  wrong command line, or FILE is there already\n"
    "  3  interrupted; the same command goes on\n"
    "  4  a digest is another than wanted; the data stays in FILE.vell-part, and the next call begins anew\n"
    "  5  not enough space");

std::string lower_case(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

template <DigestKind Kind>
std::string check_digest(const std::string& text) {
    if (is_digest(lower_case(text), Kind)) return "";
    return formatted(tr("problem", "a digest of %llu hexadecimal digits is expected"), number(names_of(Kind).digits));
}

}  // namespace

void describe_get(Arguments& program) {
    const auto options = std::make_shared<GetOptions>();
    Arguments command =
        program.command("get", tr("help", "download a file, going on where an earlier download was cut"));
    command.footer(tr("help", k_footer));
    command.value("URL", options->url, tr("help", "http or https"));
    command.value("FILE", options->path, tr("help", "the file that is made"));
    command.option("--md5", digest_of(options->digests, DigestKind::md5), tr("help", "the MD5 that it must have"),
                   check_digest<DigestKind::md5>);
    command.option("--xxh128", digest_of(options->digests, DigestKind::xxh128),
                   tr("help", "the XXH128 that it must have"), check_digest<DigestKind::xxh128>);
    constexpr uint32_t k_day_seconds = 86400;
    command.option("--timeout", options->timeout_seconds, {1, k_day_seconds},
                   tr("help", "seconds without any data until it counts as cut (default: 60)"));
    command.flag("--overwrite", options->overwrites, tr("help", "replace FILE"));
    command.flag("--quiet", options->is_quiet, tr("help", "print failures only"));
    command.flag("--json", options->is_json, tr("help", "print one JSON object for each event"));
    command.run([options] {
        for (std::string& digest : options->digests)
            digest = lower_case(digest);
        return get(*options);
    });
}

}  // namespace tool
