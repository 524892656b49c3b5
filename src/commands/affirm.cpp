// Asks on the console and reads the answer from it, byte by byte.
#include "commands/affirm.h"

#include <cctype>
#include <cstdio>

#include "console/console.h"
#include "util/log.h"

bool affirm_on = false;

bool _affirmation() {
  if (!affirm_on) {
    return true;
  }
  log_printf(level_plain, "Do you really want to do this (y/N)? ");
  const int answer = tolower(tty_read_cli_byte());
  int last = answer;
  if (answer != '\n' && answer != EOF) {
    putchar(answer);
    fflush(stdout);
    do {
      last = tty_read_cli_byte();
    } while (last != '\n' && last != EOF);
  }
  log_printf(level_plain, "\n");
  if (answer == 'y' && last == '\n') {
    return true;
  }
  log_printf(level_plain, "<aborted>\n");
  return false;
}
