// The list of languages, the saved choice, and messages from real catalogs. Each test is a process of its own.

#include "vellcore/language.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <array>
#include <atomic>
#include <clocale>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "files/file_faults.h"
#include "files/test_files.h"
#include "support/log_capture.h"
#include "support/temporary_folder.h"
#include "vellcore/file_operations.h"

namespace {

/// A data folder of the test's own.
class LanguageTest : public testing::Test {
protected:
    void SetUp() override {
        for (const char* variable : {"LC_ALL", "LC_MESSAGES", "LANG"})
            unsetenv(variable);
        setenv("VELL_TEST_DATA", data_.path().c_str(), 1);
        file_initialize(nullptr, "VELL_TEST_DATA");
    }
    void TearDown() override { vl_lang_free(); }

    /// Puts the catalogs and a list of languages there.
    void install(const std::string& list) {
        for (const char* name : {"de", "sr_RS@latin"}) {
            const std::string folder = data_ / (std::string("locale/") + name + "/LC_MESSAGES");
            std::filesystem::create_directories(folder);
            std::filesystem::copy(std::string(VELL_TEST_CATALOGS) + "/" + name + ".mo", folder + "/gantry.mo",
                                  std::filesystem::copy_options::overwrite_existing);
        }
        data_.write("locale/languages", list);
    }

    TemporaryFolder data_;
};

struct Item {
    int value;
    std::string identifier, name, description;
    bool operator==(const Item&) const = default;
};

std::vector<Item> menu() {
    std::vector<Item> items;
    const vl_lang_enum_item* item = vl_RNA_lang_enum_properties();
    for (; item != nullptr && item->identifier != nullptr; ++item) {
        items.push_back({item->value, item->identifier, item->name, item->description});
        EXPECT_EQ(item->icon, 0);
    }
    if (item != nullptr) {
        EXPECT_EQ(std::string(item->name) + item->description, "") << "the terminator";
    }
    return items;
}

TEST_F(LanguageTest, ReadsTheListOfLanguages) {
    const struct {
        const char* label;
        const char* list;
        std::vector<Item> items;
    } rows[] = {
        {"everyday",
         "0:System:system\n# comment\n\n1:English:en_US\n2:Deutsch:de_DE",
         {{0, "system", "System", ""}, {1, "en_US", "English", "en_US"}, {2, "de_DE", "Deutsch", "de_DE"}}},
        {"more fields, carriage returns",
         "3:Français:fr_FR:done\r\n4:日本語:ja_JP\r\n",
         {{3, "fr_FR", "Français", "fr_FR"}, {4, "ja_JP\r", "日本語", "ja_JP\r"}}},
        {"too few colons", "5:only\nnothing\n6:a:b", {{6, "b", "a", "b"}}},
        {"odd numbers",
         "-1:minus:m\n 7:blank:b\nx:none:n\n99999999999:huge:h\n70000:large:l",
         {{0, "m", "minus", ""},
          {0, "b", "blank", ""},
          {0, "n", "none", ""},
          {2147483647, "h", "huge", "h"},
          {70000, "l", "large", "l"}}},
        {"empty fields", "::\n8::", {{0, "", "", ""}, {8, "", "", ""}}},
        {"nothing", "", {}},
    };
    for (const auto& row : rows) {
        install(row.list);
        EXPECT_TRUE(vl_lang_init());
        EXPECT_EQ(menu(), row.items) << row.label;
    }
    std::filesystem::remove(data_ / "locale/languages");
    EXPECT_TRUE(vl_lang_init());
    EXPECT_NE(vl_RNA_lang_enum_properties(), nullptr) << "an empty menu";
    EXPECT_TRUE(menu().empty());
    vl_lang_free();
    EXPECT_EQ(vl_RNA_lang_enum_properties(), nullptr);
}

TEST_F(LanguageTest, SaysWhereItLookedForTheFolder) {
    const LogCapture log;
    EXPECT_FALSE(vl_lang_init());
    EXPECT_TRUE(log.contains("ERROR: Failed to open 'locale' data path. No language support available."));
    EXPECT_TRUE(log.contains("Locale path: " + (data_ / "locale")));
    EXPECT_EQ(vl_RNA_lang_enum_properties(), nullptr);
    vl_lang_set(nullptr);
    EXPECT_STREQ(vl_lang_get(), "en_US");
    EXPECT_STREQ(vl_pgettext("Open"), "Open");
}

TEST_F(LanguageTest, ReadsAFolderThatTheCallerNames) {
    install("2:Deutsch:de_DE\n");
    std::filesystem::rename(data_ / "locale", data_ / "elsewhere");
    const LogCapture log;
    for (const std::string& folder : {data_ / "nowhere", data_ / "elsewhere/languages", std::string()}) {
        EXPECT_FALSE(vl_lang_init_from(folder.c_str())) << folder;
        EXPECT_EQ(vl_RNA_lang_enum_properties(), nullptr);
    }
    EXPECT_FALSE(vl_lang_init_from(nullptr));
    ASSERT_TRUE(vl_lang_init_from((data_ / "elsewhere").c_str()));
    vl_lang_set("de_DE");
    EXPECT_STREQ(vl_pgettext("Open"), "Öffnen");
    EXPECT_FALSE(vl_lang_init_from((data_ / "nowhere").c_str()));
    EXPECT_EQ(menu().size(), 1U) << "what was there stays";
    EXPECT_FALSE(log.contains("ERROR"));
}

TEST_F(LanguageTest, TranslatesByTheChosenLanguage) {
    install("0:System:system\n2:Deutsch:de_DE\n");
    ASSERT_TRUE(vl_lang_init());
    const struct {
        const char* code;
        const char* present;
        const char* plain;
        const char* adjective;
    } rows[] = {{"de_DE", "de_DE", "Öffnen", "Offen"},
                {"de_AT", "de_AT", "Öffnen", "Offen"},
                {"sr_RS@latin", "sr_RS@latin", "Otvori", "Otvoreno"},
                {"fr_FR", "fr_FR", "Open", "Open"},
                {nullptr, "en_US", "Open", "Open"},
                {"de_DE", "de_DE", "Öffnen", "Offen"}};
    for (const auto& row : rows) {
        vl_lang_set(row.code);
        EXPECT_STREQ(vl_lang_get(), row.present);
        EXPECT_STREQ(vl_pgettext("Open"), row.plain);
        EXPECT_STREQ(vl_pgettext(nullptr, "Open"), row.plain);
        EXPECT_STREQ(vl_pgettext("adjective", "Open"), row.adjective);
        EXPECT_STREQ(vl_pgettext("", "Open"), "Open") << "an empty context is one of its own";
    }
    EXPECT_EQ(vl_pgettext("adjective", nullptr), nullptr);
    const char* empty = "";
    EXPECT_EQ(vl_pgettext(empty), empty);
    setenv("LANG", "de_DE.UTF-8@euro", 1);
    vl_lang_set("");
    EXPECT_STREQ(vl_lang_get(), "de_DE") << "the user's own";
    EXPECT_STREQ(setlocale(LC_ALL, nullptr), "C");
}

TEST_F(LanguageTest, KeepsTheLanguageWhenANameCannotBeUsed) {
    install("");
    ASSERT_TRUE(vl_lang_init());
    vl_lang_set("de_DE");
    for (const char* name : {"de_DE", "de_DE.NO-SUCH-ENCODING"}) {
        vl_locale_set(name);
        EXPECT_STREQ(vl_locale_get(), "de_DE") << name;
        EXPECT_STREQ(vl_pgettext("Open"), "Öffnen") << name;
    }
    data_.write("locale/xx/LC_MESSAGES/gantry.mo", "no catalog");
    vl_lang_set("xx_XX");
    EXPECT_STREQ(vl_pgettext("Open"), "Öffnen") << "a damaged catalog";
    vl_lang_set(std::string(5000, 'x').c_str());
    EXPECT_STREQ(vl_locale_get(), "de_DE");
}

TEST_F(LanguageTest, TranslationsOutliveTheirLanguage) {
    install("");
    ASSERT_TRUE(vl_lang_init());
    vl_lang_set("de_DE");
    const char* german = vl_pgettext("Open");
    const char* name = vl_lang_get();
    std::atomic<bool> is_over{false};
    std::vector<std::thread> readers;
    for (int i = 0; i < 2; ++i) {
        readers.emplace_back([&is_over] {
            while (!is_over) {
                const std::string text = vl_pgettext("adjective", "Open");
                EXPECT_TRUE(text == "Offen" || text == "Otvoreno") << text;
                EXPECT_NE(std::string(vl_lang_get()), "");
            }
        });
    }
    for (int i = 0; i < 200; ++i)
        vl_lang_set(i % 2 == 0 ? "sr_RS@latin" : "de_DE");
    ASSERT_TRUE(vl_lang_init());
    vl_lang_set("sr_RS@latin");
    is_over = true;
    for (std::thread& reader : readers)
        reader.join();
    EXPECT_STREQ(german, "Öffnen");
    EXPECT_STREQ(name, "de_DE");
}

TEST_F(LanguageTest, SavesAndReadsTheChoice) {
    EXPECT_EQ(vl_save_language_cfg(nullptr), 0);
    EXPECT_EQ(vl_save_language_cfg(""), 0);
    EXPECT_EQ(vl_save_language_cfg("sr_RS@latin"), 1);
    EXPECT_EQ(read_whole_file(data_ / "Settings/language.cfg"),
              "#\r\n# Language Settings \r\n# Generated by Gantry!\r\n# Please use the System Settings window to "
              "modify.\r\n#\r\nlanguage=sr_RS@latin\r\n");
    EXPECT_STREQ(vl_read_language_cfg(), "sr_RS@latin");
    const struct {
        const char* content;
        const char* language;
    } rows[] = {{"  language=fr_FR", "fr_FR"},
                {"#language=fr_FR\n", nullptr},
                {"\n \nlanguage=\nlanguage= ja_JP and more\n", "ja_JP"},
                {"sound=on\nlanguage=de_DE\r\n", "de_DE"},
                {"", nullptr}};
    for (const auto& row : rows) {
        data_.write("Settings/language.cfg", row.content);
        const char* language = vl_read_language_cfg();
        if (row.language == nullptr) {
            EXPECT_EQ(language, nullptr);
        } else {
            EXPECT_STREQ(language, row.language) << row.content;
        }
    }
    std::filesystem::remove(data_ / "Settings/language.cfg");
    EXPECT_EQ(vl_read_language_cfg(), nullptr);
    std::filesystem::remove_all(data_ / "Settings");
    data_.write("Settings", "a file where the folder should be");
    EXPECT_EQ(vl_save_language_cfg("de_DE"), 0);
}

TEST_F(LanguageTest, KeepsTheOldChoiceWhenANewOneCannotBeSaved) {
    const std::string settings = data_ / "Settings", path = settings + "/language.cfg";
    ASSERT_EQ(vl_save_language_cfg("de_DE"), 1);
    ASSERT_EQ(chmod(path.c_str(), 0640), 0);
    const std::string old_content = read_whole_file(path);
    int failures = 0;
    for_each_file_fault(ENOSPC, [&](const FileFault&) {
        data_.write("Settings/language.cfg", old_content);
        const bool is_saved = vl_save_language_cfg("fr_FR") == 1;
        if (!is_saved) ++failures;
        EXPECT_EQ(read_whole_file(path) == old_content, !is_saved);
        const std::filesystem::directory_iterator entries(settings);
        EXPECT_EQ(std::distance(begin(entries), end(entries)), 1) << "nothing else is left there";
    });
    EXPECT_GE(failures, 3) << "creating, writing, flushing, renaming";
    EXPECT_STREQ(vl_read_language_cfg(), "fr_FR");
    struct stat facts {};
    ASSERT_EQ(stat(path.c_str(), &facts), 0);
    EXPECT_EQ(facts.st_mode & 07777, 0640U) << "it keeps its permissions";
    std::filesystem::rename(path, data_ / "elsewhere");
    std::filesystem::create_symlink("../elsewhere", path);
    EXPECT_EQ(vl_save_language_cfg("ja_JP"), 1);
    EXPECT_TRUE(std::filesystem::is_symlink(path)) << "a link stays one";
    EXPECT_STREQ(vl_read_language_cfg(), "ja_JP");
    std::filesystem::remove(path);
    std::filesystem::create_symlink("/dev/full", path);
    EXPECT_EQ(vl_save_language_cfg("ja_JP"), 0) << "a disk that is full";
}

TEST(LocaleName, IsTakenApart) {
    using Parts = std::array<std::string, 5>;
    const struct {
        const char* name;
        Parts parts;
    } rows[] = {{"pt_BR@x", {"pt", "BR", "x", "pt_BR", "pt@x"}},
                {"en", {"en", "-", "-", "-", "-"}},
                {"de_DE", {"de", "DE", "-", "de_DE", "-"}},
                {"sr@latin", {"sr", "-", "latin", "-", "sr@latin"}},
                {"sr@lat_in", {"sr", "-", "lat_in", "-", "sr@lat_in"}},
                {"", {"", "-", "-", "-", "-"}},
                {"_@", {"", "", "", "_", "@"}}};
    for (const auto& row : rows) {
        char* texts[5];
        vl_locale_explode(row.name, &texts[0], &texts[1], &texts[2], &texts[3], &texts[4]);
        Parts parts;
        for (size_t i = 0; i < parts.size(); ++i) {
            parts[i] = texts[i] != nullptr ? texts[i] : "-";
            std::free(texts[i]);
        }
        EXPECT_EQ(parts, row.parts) << row.name;
        vl_locale_explode(row.name, nullptr, nullptr, nullptr, nullptr, nullptr);
    }
    EXPECT_TRUE(vl_is_default_context(nullptr));
}

}  // namespace
