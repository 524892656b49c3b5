// Asks on the console and reads the answer from it, byte by byte.
#include "commands/affirm.h"

#include <cctype>
#include <cstdio>

#include "util/log.h"

bool affirm_on = false;

bool _affirmation() {
  if (!affirm_on) {
    return true;
  }
  log_printf(level_plain, "Do you really want to do this (y/N)? ");
  const int answer = tolower(fgetc(stdin));
  if (answer != '\n' && answer != EOF) {
    putchar(answer);
    fflush(stdout);
    int rest;
    do {
      rest = fgetc(stdin);
    } while (rest != '\n' && rest != EOF);
  }
  clearerr(stdin);
  log_printf(level_plain, "\n");
  if (answer == 'y') {
    return true;
  }
  log_printf(level_plain, "<aborted>\n");
  return false;
}
