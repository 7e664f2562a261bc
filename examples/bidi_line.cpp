// Edits one line with the cursor keys, right to left or mixed: arrows move, Backspace deletes, Enter ends. The line is
// kept in logical order and shown in visual order. Without a terminal the keys come from standard input as they are.

#include <termios.h>
#include <unistd.h>
#include <vellcore/vellcore.h>

#include <cstdio>
#include <cstring>
#include <memory>

namespace {

char line[512] = "";
int cursor = 0;  // logical
const std::unique_ptr<VlBidi> bidi(VlBidi::Create());

int length() {
    return static_cast<int>(vl_utf8_strlen(line));
}

void show() {
    bidi->SetLogicalText(line);
    const int column = bidi->CursorPosLog2Vis(cursor);
    std::printf("\r\033[K%s\r", bidi->GetVisualText());
    if (column > 0) std::printf("\033[%dC", column);
    std::fflush(stdout);
}

/// Moves the cursor by one place on the screen.
void move(int step) {
    bidi->SetLogicalText(line);
    const int column = bidi->CursorPosLog2Vis(cursor) + step;
    if (column >= 0 && column <= length()) cursor = bidi->CursorPosVis2Log(column);
}

/// Reads the terminal key by key, and puts it back as it was.
class RawTerminal {
public:
    RawTerminal() : is_terminal_(tcgetattr(STDIN_FILENO, &before_) == 0) {
        termios raw = before_;
        raw.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
        if (is_terminal_) tcsetattr(STDIN_FILENO, TCSANOW, &raw);
    }
    ~RawTerminal() {
        if (is_terminal_) tcsetattr(STDIN_FILENO, TCSANOW, &before_);
    }
    RawTerminal(const RawTerminal&) = delete;
    RawTerminal& operator=(const RawTerminal&) = delete;

private:
    termios before_{};
    bool is_terminal_;
};

void press(const char* key) {
    const bool is_erasing = strcmp(key, "\177") == 0 || strcmp(key, "\b") == 0;
    if (strcmp(key, "\033[C") == 0) {
        move(1);
    } else if (strcmp(key, "\033[D") == 0) {
        move(-1);
    } else if (is_erasing && cursor > 0) {
        vl_utf8_erase(line, --cursor, 1);
    } else if (!is_erasing && key[0] != '\033' && vl_utf8_insert(line, sizeof line, cursor, key) > 0) {
        ++cursor;
    }
}

/// The next key: a character of UTF-8, or the three bytes of a cursor key. False at the end of the line or the input.
bool read_key(char (&key)[5]) {
    memset(key, 0, sizeof key);
    for (size_t count = 0; count < 4;) {
        if (read(STDIN_FILENO, &key[count], 1) != 1 || key[count] == '\n' || key[count] == '\r') return false;
        ++count;
        const bool is_whole = key[0] == '\033' ? count == 3 : vl_utf8_is_valid(key) != 0;
        if (is_whole) return true;
    }
    return true;
}

}  // namespace

int main() {
    const RawTerminal terminal;
    for (char key[5]; read_key(key);) {
        press(key);
        show();
    }
    std::printf("\n%s\n", line);
    return 0;
}
