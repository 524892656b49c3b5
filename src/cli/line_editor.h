// The prompt: reads the console byte by byte, edits the line and hands it on when it is finished.
#pragma once

constexpr unsigned cli_line_length = 256;  // characters

/// The line under edit. One byte more than the longest line, for its terminator.
extern char cli_readbuf[cli_line_length + 1];

/// Prompts, reads and runs lines for ever. The end of input is taken as a backspace, ten times a second.
[[noreturn]] void cli_loop();

/// Puts one character into `cli_readbuf` at `*cursor` and on the screen, in front of the character there or
/// in its place; a character that would make the line longer than 256 is dropped.
void cli_readcmd_insert_char(char character, bool insert_mode, unsigned* cursor, unsigned* length);
