// Whatever comes on the console's line, against an editor as one would write it first, and against a terminal
// that shows what the editor sends: after every byte the line stands there, and the cursor where it belongs.
#include <algorithm>
#include <csetjmp>
#include <cstring>
#include <deque>
#include <optional>
#include <utility>

#include "cli/dispatch.h"
#include "cli/line_editor.h"
#include "fuzz_screen.h"
#include "util/log.h"

namespace {

void expect(bool holds) {
  if (!holds) {
    abort();
  }
}

// One row of a terminal. Every byte but a backspace and a line feed takes a column.
class terminal {
 public:
  void show(const std::string& bytes) {
    for (const char byte : bytes) {
      if (byte == '\n') {
        row_.clear();
        column_ = 0;
      } else if (byte == '\b') {
        column_ -= column_ > 0 ? 1 : 0;
      } else {
        row_.resize(std::max(row_.size(), column_ + 1), ' ');
        row_[column_++] = byte;
      }
    }
  }
  size_t column() const { return column_; }
  bool shows(const std::string& text) const {
    return row_.compare(0, text.size(), text) == 0 &&
           row_.find_first_not_of(' ', text.size()) == std::string::npos;
  }

 private:
  std::string row_;
  size_t column_ = 0;
};

// The editor without a screen.
class plain_editor {
 public:
  const std::string& text() const { return text_; }
  size_t cursor() const { return cursor_; }
  unsigned lines_begun() const { return lines_begun_; }
  // The line that Enter has ended since it was last asked for.
  std::optional<std::string> take_accepted() { return std::exchange(accepted_, std::nullopt); }

  void press(char byte) {
    if (byte == '\r' || byte == '\n') {
      accept();
    } else if (!sequence_.empty()) {
      continue_sequence(byte);
    } else if (byte == '\x1B') {
      sequence_ = byte;
    } else {
      press_alone(byte);
    }
  }

 private:
  void begin_line() {
    ++lines_begun_;
    text_.clear();
    cursor_ = 0;
    inserts_ = true;
    sequence_.clear();
  }
  void accept() {
    if (!text_.empty()) {
      history_.emplace_back(text_.c_str());  // up to a NUL
      if (history_.size() > 20) {
        history_.pop_front();
      }
      back_ = 0;
    }
    accepted_ = text_;
    begin_line();
  }
  void put(char byte) {
    if (!inserts_ && cursor_ < text_.size()) {
      text_[cursor_++] = byte;
    } else if (text_.size() < 256) {
      text_.insert(cursor_++, 1, byte);
    }
  }
  void remove_under_cursor() {
    if (cursor_ < text_.size()) {
      text_.erase(cursor_, 1);
    }
  }
  void recall(const std::string& line) {
    text_ = line;
    cursor_ = text_.size();
  }
  void recall_older() {
    if (back_ < history_.size()) {
      ++back_;
      recall(history_[history_.size() - back_]);
    }
  }
  void recall_newer() {
    if (back_ > 0) {
      --back_;
      recall(back_ == 0 ? "" : history_[history_.size() - back_]);
    }
  }
  void move_left() { cursor_ -= cursor_ > 0 ? 1 : 0; }
  void move_right() { cursor_ += cursor_ < text_.size() ? 1 : 0; }
  void continue_sequence(char byte) {
    if (sequence_.size() == 1) {
      if (byte == '[') {
        sequence_ += byte;
      } else {
        sequence_.clear();
        put('\x1B');
      }
      return;
    }
    const std::string whole = std::exchange(sequence_, "") + byte;
    switch (byte) {
      case 'A':
        return recall_older();
      case 'B':
        return recall_newer();
      case 'C':
        return move_right();
      case 'D':
        return move_left();
      case 'H':
        cursor_ = 0;
        return;
      default:
        for (const char character : whole) {
          put(character);
        }
    }
  }
  void press_alone(char byte) {
    switch (byte) {
      case 1:
        cursor_ = 0;
        return;
      case 2:
        return move_left();
      case 3:
        return begin_line();
      case 4:
        return remove_under_cursor();
      case 5:
        cursor_ = text_.size();
        return;
      case 6:
        return move_right();
      case 11:
        text_.resize(cursor_);
        return;
      case 14:
        return recall_newer();
      case 15:
        inserts_ = !inserts_;
        return;
      case 16:
        return recall_older();
      case 21:
      case 24:
        text_.clear();
        cursor_ = 0;
        return;
      case 8:
      case 127:
      case '\xFF':
        if (cursor_ > 0) {
          --cursor_;
          remove_under_cursor();
        }
        return;
      default:
        put(byte);
    }
  }

  unsigned lines_begun_ = 0;
  std::string text_;
  size_t cursor_ = 0;
  bool inserts_ = true;
  std::string sequence_;
  std::deque<std::string> history_;  // oldest first
  size_t back_ = 0;
  std::optional<std::string> accepted_;
};

// A person at the console. The editor comes for one byte after the other; what the last one did is judged
// then.
struct person {
  const uint8_t* next;
  const uint8_t* end;
  plain_editor editor = {};
  terminal screen = {};
  unsigned unseen_line = ~0U;  // the last one that held what takes no column, or what moves the cursor
  std::optional<std::string> executed = {};
};

person* at_console = nullptr;
jmp_buf gone;

void judge(person& who) {
  who.screen.show(std::exchange(shown, ""));
  const std::optional<std::string> accepted = who.editor.take_accepted();
  expect(std::exchange(who.executed, std::nullopt) == accepted);
  const std::string& text = who.editor.text();
  if (text.find('\0') != std::string::npos || text.find('\b') != std::string::npos) {
    who.unseen_line = who.editor.lines_begun();
  }
  constexpr const char* prompt = "CLI> ";
  if (who.unseen_line != who.editor.lines_begun()) {
    expect(who.screen.shows(prompt + text));
    expect(who.screen.column() == strlen(prompt) + who.editor.cursor());
  }
}

ssize_t next_byte(void* cookie, char* buffer, size_t size) {
  auto& who = *static_cast<person*>(cookie);
  judge(who);
  if (who.next == who.end || size == 0) {
    return 0;
  }
  buffer[0] = static_cast<char>(*who.next++);
  who.editor.press(buffer[0]);
  return 1;
}

}  // namespace

// In place of the dispatcher.
void cli_execute_line(char* line) {
  const std::optional<std::string>& executed = at_console->executed;
  expect(!executed && line == cli_readbuf);
  // The line may hold a NUL: it is known whole by the editor to compare with alone.
  plain_editor copy = at_console->editor;
  const std::string accepted = copy.take_accepted().value();
  expect(memcmp(line, accepted.c_str(), accepted.size() + 1) == 0);
  at_console->executed = accepted;
}

// The end of input is waited for: then the person has gone, and the prompt, which has no end, is left.
extern "C" int __wrap_usleep(useconds_t) {
  longjmp(gone, 1);
}

static void stay_until_gone() {
  if (setjmp(gone) == 0) {
    cli_loop();
  }
}

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  show_on_screen();
  person who = {.next = data, .end = data + size};
  at_console = &who;
  cookie_io_functions_t functions = {};
  functions.read = next_byte;
  FILE* const terminal_of_run = stdin;
  stdin = fopencookie(&who, "r", functions);
  stay_until_gone();
  fclose(stdin);
  stdin = terminal_of_run;
  return 0;
}
