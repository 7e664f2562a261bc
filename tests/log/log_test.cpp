#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "support/log_capture.h"

namespace {

using Lines = std::vector<std::string>;

std::string text_of(size_t length, char c) {
    return std::string(length, c);
}

TEST(Log, WritesEachLevelUnderItsNameUpToTheThreshold) {
    const LogCapture log(MSG_TRACE);
    EXPECT_EQ(msgerror("a %d", 1), 1);
    EXPECT_EQ(msgwarn("b"), 1);
    EXPECT_EQ(msginfo("c"), 1);
    EXPECT_EQ(msgdebug("d"), 1);
    EXPECT_EQ(msg_trace("e"), 1);
    EXPECT_EQ(msg(7, "f"), 1);
    EXPECT_EQ(log.lines(), (Lines{"ERROR: a 1", "WARN : b", "INFO : c", "DEBUG: d", "TRACE: e", "TRACE: f"}));
}

TEST(Log, OpensAtInformationOnAStreamAndAtWarningsOnStandardError) {
    EXPECT_EQ(msg_getlevel(), -1);
    msg_setlevel(3);
    EXPECT_EQ(msg_getlevel(), -1) << "a closed log has no level to set";
    {
        const LogCapture log;
        msg_initialize(msg_get_file());
        EXPECT_EQ(msg_getlevel(), MSG_INFO);
        EXPECT_EQ(msgdebug("no"), 0);
    }
    msg_initialize(nullptr);
    EXPECT_EQ(msg_getlevel(), MSG_WARN);
    EXPECT_EQ(msg_get_file(), stderr);
    msg_closedown();
    EXPECT_EQ(msg_get_file(), nullptr);
}

TEST(Log, AnswersNothingWhileClosed) {
    EXPECT_EQ(msgerror("x"), 0);
    EXPECT_EQ(msgcont("x"), 0);
    EXPECT_EQ(msg(-3, "x"), 0);
    EXPECT_EQ(msglist("x"), 0);
    EXPECT_EQ(msg_os_error("x"), 0);
    EXPECT_EQ(msg_os_error("x", 5), 0);
    msg_set_lock();
    msg_release_lock();
    msg_closedown();
}

TEST(Log, ContinuationsShareTheFateOfTheEntryBefore) {
    const LogCapture log(MSG_WARN);
    msgwarn("kept");
    EXPECT_EQ(msgcont("1"), 1);
    msginfo("filtered");
    EXPECT_EQ(msgcont("2"), 0);
    msgwarn("kept again");
    msgdebug("filtered, and leaves the level alone");
    EXPECT_EQ(msgcont("3"), 1);
    msg(-1, "never written");
    EXPECT_EQ(msgcont("4"), 0);
    msgerror("back");
    msg_trace("moves nothing");
    EXPECT_EQ(msgcont("5"), 1);
    EXPECT_EQ(log.lines(), (Lines{"WARN : kept", ": 1", "WARN : kept again", ": 3", "ERROR: back", ": 5"}));
}

TEST(Log, CountsRepeatsAndReportsThemOnce) {
    const LogCapture log;
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(msginfo("same"), 1);
    msginfo("other");
    msginfo("other");  // one repeat alone is dropped
    msginfo("last");
    const std::string text = log.text();
    const size_t first_line = text.find('\n') + 1;
    const std::string report = "               # : Repeated 2 times\n";
    EXPECT_EQ(text.compare(first_line, report.size(), report), 0) << text;
    EXPECT_EQ(log.lines().size(), 4u) << text;
    EXPECT_NE(text.find("INFO : other\n"), std::string::npos);
}

TEST(Log, RepeatCheckLooksAtTextAndEntryLengthOnly) {
    struct Row {
        const char* label;
        std::string first, second;
        bool second_is_continuation;
        size_t lines;
    };
    const Row rows[] = {
        {"the level does not count", "same", "same", false, 1},
        {"a continuation equal to its entry", "same", "same", true, 1},
        {"255 bytes still are repeats", text_of(255, 'x'), text_of(255, 'x'), false, 1},
        {"256 bytes never are", text_of(256, 'x'), text_of(256, 'x'), false, 2},
        {"a newline makes another text", "same", "same\n", false, 2},
    };
    for (const Row& row : rows) {
        const LogCapture log;
        msgwarn("%s", row.first.c_str());
        row.second_is_continuation ? msgcont("%s", row.second.c_str()) : msgerror("%s", row.second.c_str());
        EXPECT_EQ(log.lines().size(), row.lines) << row.label;
    }
}

TEST(Log, WritesWideCharactersThatTheLocaleDoesNotHave) {
    constexpr wchar_t k_no_character[] = {0xD800, 0};
    const LogCapture log;
    EXPECT_EQ(msginfo("reel %ls of %d", L"Zo\u00EB", 4), 1);
    EXPECT_EQ(msgcont("reel %ls", k_no_character), 1);
    EXPECT_EQ(log.lines(), (Lines{"INFO : reel Zo\u00EB of 4", ": reel %ls"}));
}

TEST(Log, ContinuationReplacesTheKeptTextButNotItsLength) {
    const LogCapture log;
    msginfo("AAAA");
    msgcont("CCC");
    EXPECT_EQ(msginfo("CCC\n"), 1) << "equals what the continuation left behind, newline included";
    msgcont("CCC");
    EXPECT_EQ(log.lines(), (Lines{"INFO : AAAA", ": CCC", ": CCC"}));
}

TEST(Log, RepeatOverrideLastsUntilTheNextReport) {
    const LogCapture log;
    msg_repeatdisplayoverride();
    msginfo("a");
    msginfo("a");
    msginfo("b");
    msginfo("b");
    EXPECT_EQ(log.lines().size(), 4u) << "no report came, so it stays in force";
}

TEST(Log, EndsEveryLineInOneNewlineAndCutsLongTexts) {
    const struct {
        const char* label;
        std::string text;
        size_t written;  // without the prefix
    } rows[] = {
        {"adds a newline", "abc", 4},
        {"keeps the one there is", "abc\n", 4},
        {"nothing for an empty text", "", 0},
        {"8190 fit with a newline", text_of(8190, 'a'), 8191},
        {"8191 lose the last character", text_of(8191, 'a'), 8191},
        {"longer texts are cut", text_of(20000, 'a'), 8191},
    };
    for (const auto& row : rows) {
        const LogCapture log;
        EXPECT_EQ(msginfo("%s", row.text.c_str()), 1);
        const std::string text = log.text();
        EXPECT_EQ(text.size(), row.written == 0 ? 0 : row.written + 19) << row.label;
        EXPECT_EQ(text.find('\n'), text.empty() ? std::string::npos : text.size() - 1) << row.label;
    }
}

TEST(Log, OsErrorNamesErrnoWhateverTheNumber) {
    const LogCapture log;
    errno = ENOENT;
    EXPECT_EQ(msg_os_error("open"), 1);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(msg_os_error("none", 0), 0);
    errno = EACCES;
    EXPECT_EQ(msg_os_error("write", ENOSPC), 1);
    EXPECT_EQ(msgcont("no entry before it"), 0);
    EXPECT_EQ(log.lines(), (Lines{"ERROR: open : 'No such file or directory'", "ERROR: write : 'Permission denied'"}));
}

TEST(Log, SwitchedOffStillLetsMsgReachStandardError) {
    testing::internal::CaptureStderr();
    const LogCapture log(-2);
    EXPECT_EQ(msgerror("no"), 0);
    EXPECT_EQ(msg(MSG_WARN, "yes"), 1);
    EXPECT_EQ(msg(9, "blank\n"), 1);
    EXPECT_EQ(msg(-1, "blank"), 1);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "##:##:##.## WARN : yes\n##:##:##.##      : blank\n##:##:##.##      : blank\n");
    EXPECT_EQ(log.text(), "");
}

TEST(Log, ListWritesTextsAsTheyAre) {
    const LogCapture log(MSG_ERROR);
    EXPECT_EQ(msglist("plain"), 1);
    EXPECT_EQ(msglist(nullptr), 0);
    EXPECT_EQ(log.text(), "plain\n");
}

TEST(Log, KeepsErrnoForItsCallers) {
    const LogCapture log;
    errno = EINTR;
    msginfo("x");
    msgdebug("filtered");
    EXPECT_EQ(errno, EINTR);
}

TEST(Log, LinesGoOutAtOnceAndWhole) {
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_NONBLOCK | O_DIRECT), 0);  // a packet pipe: one read gives what one write wrote
    FILE* stream = fdopen(ends[1], "w");
    msg_initialize(stream);
    msginfo("one line");
    char packet[256];
    ASSERT_EQ(read(ends[0], packet, sizeof packet), 19 + 9);
    EXPECT_EQ(std::memcmp(packet + 12, "INFO : one line\n", 16), 0);
    msg_closedown();
    fclose(stream);
    close(ends[0]);
}

}  // namespace
