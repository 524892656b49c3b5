// Sends characters, blanks, byte 8 (which must move the terminal's cursor left) and line ends. Understands
// ESC [ A, B, C, D and H, which the cursor keys send (ECMA-48).
#include "cli/line_editor.h"

#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <utility>

#include "cli/dispatch.h"
#include "cli/history.h"
#include "console/console.h"
#include "tty/port.h"
#include "util/log.h"

char cli_readbuf[cli_line_length + 1];

namespace {

enum class key_result { editing, accepted, abandoned };

struct line_state {
  unsigned cursor = 0;
  unsigned length = 0;
  bool insert_mode = true;
  unsigned escape_state = 0;  // bytes of an escape sequence seen: 0, 1 (ESC), 2 (ESC [)
  char escape[3] = {};
};

constexpr unsigned input_retry_us = 100000;

void emit(char character, unsigned count) {
  while (count-- > 0) {
    putchar(character);
  }
}

void emit_backspaces(unsigned count) {
  emit('\b', count);
}

void emit_text(unsigned begin, unsigned count) {
  printf("%.*s", static_cast<int>(count), cli_readbuf + begin);
}

// Blanks `count` places from the cursor on and returns to it.
void emit_blanked(unsigned count) {
  emit(' ', count);
  emit_backspaces(count);
}

void insert_char(line_state& line, char character) {
  cli_readcmd_insert_char(character, line.insert_mode, &line.cursor, &line.length);
}

void move_home(line_state& line) {
  emit_backspaces(line.cursor);
  line.cursor = 0;
}

void move_left(line_state& line) {
  if (line.cursor > 0) {
    emit_backspaces(1);
    --line.cursor;
  }
}

void move_right(line_state& line) {
  if (line.cursor < line.length) {
    putchar(cli_readbuf[line.cursor]);
    ++line.cursor;
  }
}

void move_end(line_state& line) {
  if (line.cursor < line.length) {
    emit_text(line.cursor, line.length - line.cursor);
    line.cursor = line.length;
  }
}

// Removes the character under the cursor and draws the tail again.
void close_gap(line_state& line) {
  const unsigned tail = line.length - 1 - line.cursor;
  memmove(cli_readbuf + line.cursor, cli_readbuf + line.cursor + 1, tail);
  if (tail > 0) {
    emit_text(line.cursor, tail);
  }
  putchar(' ');
  emit_backspaces(tail + 1);
  --line.length;
}

void delete_under_cursor(line_state& line) {
  if (line.cursor < line.length) {
    close_gap(line);
  }
}

void delete_left_of_cursor(line_state& line) {
  if (line.cursor > 0) {
    move_left(line);
    close_gap(line);
  }
}

void kill_to_end(line_state& line) {
  if (line.cursor < line.length) {
    emit_blanked(line.length - line.cursor);
    line.length = line.cursor;
  }
}

void erase_line(line_state& line) {
  move_home(line);
  kill_to_end(line);
}

void toggle_insert(line_state& line) {
  line.insert_mode = !line.insert_mode;
}

void show_recalled(line_state& line, const char* recalled) {
  if (recalled == nullptr) {
    return;
  }
  erase_line(line);
  line.length = static_cast<unsigned>(strnlen(recalled, cli_line_length));
  memcpy(cli_readbuf, recalled, line.length);
  emit_text(0, line.length);
  line.cursor = line.length;
}

void recall_older(line_state& line) {
  show_recalled(line, history_older());
}

void recall_newer(line_state& line) {
  show_recalled(line, history_newer());
}

void start_escape(line_state& line) {
  line.escape_state = 1;
  line.escape[0] = 27;
}

struct key_binding {
  uint8_t byte;
  void (*action)(line_state&);
};

constexpr key_binding key_bindings[] = {
    {1, move_home},                // Ctrl-A
    {2, move_left},                // Ctrl-B
    {4, delete_under_cursor},      // Ctrl-D
    {5, move_end},                 // Ctrl-E
    {6, move_right},               // Ctrl-F
    {8, delete_left_of_cursor},    // Backspace
    {11, kill_to_end},             // Ctrl-K
    {14, recall_newer},            // Ctrl-N
    {15, toggle_insert},           // Ctrl-O
    {16, recall_older},            // Ctrl-P
    {21, erase_line},              // Ctrl-U
    {24, erase_line},              // Ctrl-X
    {27, start_escape},            // ESC
    {127, delete_left_of_cursor},  // Delete
    {255, delete_left_of_cursor},  // byte FF, and the end of input
};

// What follows ESC and "[".
constexpr key_binding escape_bindings[] = {
    {'A', recall_older}, {'B', recall_newer}, {'C', move_right}, {'D', move_left}, {'H', move_home},
};

template <size_t Count>
auto find_action(const key_binding (&bindings)[Count], uint8_t byte) -> void (*)(line_state&) {
  for (const key_binding& binding : bindings) {
    if (binding.byte == byte) {
      return binding.action;
    }
  }
  return nullptr;
}

void continue_escape(line_state& line, uint8_t byte) {
  if (line.escape_state == 1 && byte == '[') {
    line.escape[1] = '[';
    line.escape_state = 2;
    return;
  }
  const unsigned state = std::exchange(line.escape_state, 0U);
  if (state == 1) {
    // A lone ESC is put into the line; the byte that ended it is dropped.
    insert_char(line, line.escape[0]);
    return;
  }
  if (const auto action = find_action(escape_bindings, byte)) {
    action(line);
    return;
  }
  line.escape[2] = static_cast<char>(byte);
  for (const char character : line.escape) {
    insert_char(line, character);
  }
}

void accept_line(const line_state& line) {
  putchar('\n');
  cli_readbuf[line.length] = '\0';
  if (line.length > 0) {
    history_store(cli_readbuf);
  }
}

key_result handle_key(line_state& line, uint8_t byte) {
  constexpr uint8_t ctrl_c = 3;
  if (byte == '\r' || byte == '\n') {
    accept_line(line);
    return key_result::accepted;
  }
  if (line.escape_state != 0) {
    continue_escape(line, byte);
  } else if (byte == ctrl_c) {
    cli_readbuf[0] = '\0';
    return key_result::abandoned;
  } else if (const auto action = find_action(key_bindings, byte)) {
    action(line);
  } else {
    insert_char(line, static_cast<char>(byte));
  }
  return key_result::editing;
}

// The next byte of the console. The end of input is byte 255, at most ten times a second: a console that is
// gone must not keep the processor busy.
uint8_t read_key() {
  const int byte = tty_read_cli_byte();
  if (byte == EOF) {
    usleep(input_retry_us);
  }
  return static_cast<uint8_t>(byte);
}

key_result read_line() {
  line_state line;
  cli_readbuf[0] = '\0';
  log_printf(level_plain, "CLI> ");
  key_result result;
  do {
    result = handle_key(line, read_key());
    fflush(stdout);
  } while (result == key_result::editing);
  return result;
}

}  // namespace

void cli_readcmd_insert_char(char character, bool insert_mode, unsigned* cursor, unsigned* length) {
  const bool grows = insert_mode || *cursor == *length;
  if (grows) {
    if (*length == cli_line_length) {
      return;
    }
    ++*length;
  }
  if (!insert_mode) {
    cli_readbuf[*cursor] = character;
    emit_text(*cursor, 1);
    ++*cursor;
    return;
  }
  const unsigned shown = *length - *cursor;
  memmove(cli_readbuf + *cursor + 1, cli_readbuf + *cursor, shown - 1);
  cli_readbuf[*cursor] = character;
  emit_text(*cursor, shown);
  ++*cursor;
  emit_backspaces(shown - 1);
}

void cli_loop() {
  // Bytes that were not read yet stay in the kernel's queue, where a transfer that takes the line can drop
  // them; in a buffer of ours the start of an image would be run as commands.
  setvbuf(stdin, nullptr, _IONBF, 0);
  history_clear();
  log_printf(level_plain, "\n");
  for (;;) {
    tty_restore_cli_input();  // a remapping that failed may have closed it
    tty_set_isig(0);
    const key_result result = read_line();
    tty_set_isig(1);
    if (result == key_result::accepted) {
      cli_execute_line(cli_readbuf);
    } else {
      log_printf(level_plain, "\n");
    }
  }
}
