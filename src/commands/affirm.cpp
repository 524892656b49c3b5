// See affirm.h.
#include "commands/affirm.h"

#include <cctype>
#include <cstdio>

#include "util/log.h"

uint8_t affirm_on = 0;

int _affirmation() {
  if (affirm_on == 0) {
    return 1;
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
    return 1;
  }
  log_printf(level_plain, "<aborted>\n");
  return 0;
}
