// The tool in the user's language: chosen by the environment, with catalogs found from where the program lies.

#include <gtest/gtest.h>
#include <wchar.h>

#include <clocale>
#include <cstring>
#include <filesystem>
#include <utility>

#include "run_vell.h"
#include "ui/format_directives.h"
#include "ui/screen.h"
#include "ui/text_columns.h"
#include "ui/translation.h"

namespace {

constexpr const char* k_languages[] = {"LANGUAGE=", "LC_ALL=", "LC_MESSAGES=", "LANG="};

/// The environment with these variables, and without others that choose a language.
std::vector<std::string> environment(const std::vector<std::string>& variables) {
    std::vector<std::string> all(std::begin(k_languages), std::end(k_languages));
    all.insert(all.end(), variables.begin(), variables.end());
    return all;
}

std::string help_of(const std::string& program, const std::vector<std::string>& variables) {
    const TemporaryFolder folder;
    const RunResult run = run_vell(folder, {"--help"}, "", {program, environment(variables)});
    EXPECT_EQ(run.code, 0) << run.errors;
    EXPECT_EQ(run.errors, "");
    const size_t second = run.output.find('\n') + 1;
    return run.output.substr(second, run.output.find(' ', second) - second);  // how the second line begins
}

TEST(VellLanguage, IsChosenByTheEnvironment) {
    const struct {
        std::vector<std::string> variables;
        const char* usage;
    } rows[] = {{{}, "Usage:"},
                {{"LANG=de_DE.UTF-8"}, "Aufruf:"},
                {{"LANG=de_DE"}, "Aufruf:"},
                {{"LANG=de_AT.ISO-8859-15@euro"}, "Aufruf:"},
                {{"LANG=de_DE", "LC_MESSAGES=ja_JP.UTF-8"}, "使い方:"},
                {{"LANG=de_DE", "LC_MESSAGES=ja_JP", "LC_ALL=ar_EG"}, "الاستخدام:"},
                {{"LANG=de_DE", "LC_ALL=C"}, "Usage:"},
                {{"LANG=sr_RS.UTF-8@latin"}, "Upotreba:"},
                {{"LANG=sr_RS@latin"}, "Upotreba:"},
                {{"LANG=sr_RS"}, "Usage:"},  // whoever reads Cyrillic is not given another script
                {{"LANG=fr_FR.UTF-8"}, "Usage:"},
                {{"LANG=fr_FR", "LANGUAGE=xx::ja:de"}, "使い方:"},
                {{"LANG=de_DE", "LANGUAGE=en_GB:ja"}, "Usage:"},
                {{"LANG=C.UTF-8", "LANGUAGE=de"}, "Usage:"},
                {{"LANG=../../de"}, "Usage:"},
                {{"LANG=@.:_", "LANGUAGE=:::"}, "Usage:"},
                {{"LANG=" + std::string(5000, 'd')}, "Usage:"}};
    for (const auto& row : rows)
        EXPECT_EQ(help_of(VELL_PROGRAM, row.variables), row.usage) << testing::PrintToString(row.variables);
}

TEST(VellLanguage, IsSpokenEverywhere) {
    const struct {
        const char* language;
        const char* missing_file;
        const char* missing_value;
        const char* memory;
    } rows[] = {
        {"de_DE", "vell: gone: Datei oder Ordner nicht gefunden", "--window: „0“ ist keine Zahl von 1 bis",
         "Arbeitsspeicher: "},
        {"ja_JP", "vell: gone: そのようなファイルやフォルダーはありません", "--window: '0' は 1 から", "メモリ: "},
        {"ar_EG", "vell: gone: لا يوجد ملف أو مجلد بهذا الاسم", "--window: القيمة '0' ليست عددًا", "الذاكرة: "},
        {"sr_RS@latin", "vell: gone: nema takve datoteke ni fascikle", "--window: „0“ nije broj od 1 do", "memorija: "},
    };
    const TemporaryFolder folder;
    for (const auto& row : rows) {
        const Program program{VELL_PROGRAM, environment({std::string("LANG=") + row.language})};
        const RunResult hash = run_vell(folder, {"hash", "gone"}, "", program);
        EXPECT_EQ(hash.code, 1);
        EXPECT_NE(hash.errors.find(row.missing_file), std::string::npos) << hash.errors;
        const RunResult average = run_vell(folder, {"clip", "average", "a", "b", "--window", "0"}, "", program);
        EXPECT_EQ(average.code, 2);
        EXPECT_NE(average.errors.find(row.missing_value), std::string::npos) << average.errors;
        const RunResult doctor = run_vell(folder, {"doctor"}, "", program);
        EXPECT_EQ(doctor.code, 0);
        for (const std::string& text : {std::string(row.memory), std::string(" ") + row.language + "\n",
                                        std::string("ja_JP        日本語\n"), std::string("/locale\n")})
            EXPECT_NE(doctor.output.find(text), std::string::npos) << text << " in\n" << doctor.output;
    }
}

// What programs read is the same in every language.
TEST(VellLanguage, LeavesWhatProgramsReadAsItIs) {
    const TemporaryFolder folder;
    folder.write("card/a", "x");
    const Program german{VELL_PROGRAM, environment({"LANG=de_DE"})};
    const RunResult offload = run_vell(folder, {"offload", folder / "card", folder / "copy", "--json"}, "", german);
    EXPECT_EQ(offload.code, 0) << offload.errors;
    for (const char* text : {"{\"event\":\"start\"", "\"result\":\"verified\"", "\"event\":\"end\""})
        EXPECT_NE(offload.output.find(text), std::string::npos) << offload.output;
    EXPECT_EQ(read_whole_file(folder / "copy/.vell-offload").rfind("vell-offload 1\nverified\t", 0), 0U);
    folder.write("copy/a", "y");
    const RunResult verify = run_vell(folder, {"verify", folder / "copy", "--json"}, "", german);
    EXPECT_EQ(verify.code, 4);
    EXPECT_NE(verify.output.find("\"result\":\"changed\",\"detail\":\"XXH128 ist "), std::string::npos)
        << verify.output;
    const std::string path = folder / "copy/a";
    EXPECT_EQ(run_vell(folder, {"hash", path}, "", german).output, "415290769594460e2e485922904f345d  " + path + "\n");
}

TEST(VellLanguage, IsEnglishWhereTheCatalogsAreOfNoUse) {
    const TemporaryFolder folder;
    const std::string program = folder / "bin/vell", link = folder / "link";
    std::filesystem::create_directories(folder / "bin");
    std::filesystem::copy_file(VELL_PROGRAM, program);
    EXPECT_EQ(help_of(program, {"LANG=de_DE"}), "Usage:") << "no folder";
    const std::string catalog = "share/vellcore/locale/de/LC_MESSAGES/gantry.mo";
    folder.write("share/vellcore/locale/languages", "1:Deutsch:de_DE\n");
    EXPECT_EQ(help_of(program, {"LANG=de_DE"}), "Usage:") << "no catalog";
    const std::string whole =
        read_whole_file(std::filesystem::path(VELL_PROGRAM).parent_path() / "locale/de/LC_MESSAGES/gantry.mo");
    folder.write(catalog, whole);
    EXPECT_EQ(help_of(program, {"LANG=de_DE"}), "Aufruf:") << "as it is installed";
    std::filesystem::create_symlink(program, link);
    EXPECT_EQ(help_of(link, {"LANG=de_DE"}), "Aufruf:") << "by a link";
    std::string far_off = whole, no_end = whole, bad_hash = whole;
    far_off.replace(far_off.find('\xDE') + 12, 4, "\xFF\xFF\xFF\x7F");  // where the messages' table begins
    no_end.back() = 'x';
    bad_hash.replace(20, 4, std::string("\2\0\0\0", 4));
    for (const std::string& damaged : {std::string(), std::string("no catalog"), whole.substr(0, 20),
                                       std::string(200, '\xFF'), far_off, no_end, bad_hash}) {
        folder.write(catalog, damaged);
        EXPECT_EQ(help_of(program, {"LANG=de_DE"}), "Usage:") << damaged.size() << " bytes";
    }
    folder.write(catalog, whole);
    for (const char* list : {"", "# nothing\n", "x", "2:Français:fr_FR\n"}) {
        folder.write("share/vellcore/locale/languages", list);
        EXPECT_EQ(help_of(program, {"LANG=de_DE"}), "Usage:") << list;
    }
}

/// The columns by the C library's own table.
size_t columns_by_system(const std::string& text) {
    std::vector<wchar_t> wide(text.size() + 1);
    const size_t length = std::mbstowcs(wide.data(), text.c_str(), wide.size());
    EXPECT_NE(length, static_cast<size_t>(-1)) << text;
    return static_cast<size_t>(wcswidth(wide.data(), length));
}

TEST(VellLanguage, TakesNoFormatThatWantsOtherArguments) {
    const struct {
        const char* format;
        const char* translation;
        bool is_same;
    } rows[] = {{"%s of %llu", "%s von %llu", true},
                {"%s of %llu", "%2$llu: %1$-10s", true},
                {"%5.1f %% of %s", "%.3f %% %s", true},
                {"%s of %llu", "%llu von %s", false},
                {"%s of %llu", "%s", false},
                {"%s", "%s %s", false},
                {"%s", "%n", false},
                {"%s", "%*s", false},
                {"%s", "%99$s", false},
                {"%s", "%0$s", false},
                {"%s", "100 %", false},
                {"%u", "%lu", false},
                {"%s", "", false},
                {"%d %%", "%d %", false}};
    for (const auto& row : rows)
        EXPECT_EQ(tool::take_same_arguments(row.format, row.translation), row.is_same) << row.translation;
}

TEST(VellLanguage, CountsColumns) {
    ASSERT_NE(setlocale(LC_CTYPE, "C.UTF-8"), nullptr);
    for (const char* text :
         {"", "plain", "grün", "日本語フォルダー", "مجلد متغيّر", "e\u0301a", "한국", "ｆｕｌｌ", "½"})
        EXPECT_EQ(tool::columns_of(text), columns_by_system(text)) << text;
    EXPECT_EQ(tool::columns_of("\xFF\xE6"), 2U) << "bytes that are no UTF-8";
    EXPECT_EQ(tool::padded("日本", 6), "日本  ");
    EXPECT_EQ(tool::padded("日本", 3), "日本");
    EXPECT_EQ(tool::start_within("日本語", 3), "日");
    EXPECT_EQ(tool::end_within("日本語", 5), "本語");
    EXPECT_EQ(tool::end_within("xe\u0301y", 1), "y") << "no accent without its letter";
    EXPECT_EQ(tool::fitted("/cards/日本語/クリップ.mov", 16), "...クリップ.mov");
    EXPECT_EQ(tool::fitted("名前", 3), "前");
    EXPECT_EQ(tool::fitted("名前", 0), "");
}

TEST(VellLanguage, FitsProgressIntoFewColumns) {
    ASSERT_NE(setlocale(LC_CTYPE, "C.UTF-8"), nullptr);
    const std::pair<const char*, const char*> rows[] = {{"ja_JP", "残り 1:40"}, {"ar_EG", "بقي 1:40"}};
    for (const auto& [language, left] : rows) {
        setenv("LC_ALL", language, 1);
        tool::choose_language(VELL_PROGRAM);
        const std::string line =
            tool::progress_line(1'000'000'000, 2'000'000'000, 100.0, "/media/カード/中身/مقطع.mov", 40);
        EXPECT_LE(columns_by_system(line), 39U) << line;
        EXPECT_NE(line.find(left), std::string::npos) << line;
        EXPECT_LE(columns_by_system(tool::progress_line(1, 2, 1, "/media/カード", 12)), 11U);
    }
}

}  // namespace
