// Start-up, in an order that every step's failure leaves intact: the shell always comes up.
#include "cli/line_editor.h"
#include "commands/builtins.h"
#include "console/console.h"
#include "mtd/startup.h"
#include "net/interface.h"
#include "platform/discover.h"
#include "prodcfg/record.h"
#include "util/exec.h"
#include "util/log.h"
#include "util/signals.h"

int main() {
  sigint_install_ignore();
  sigquit_install_ignore();
  signals_forget_inherited();
  tty_init();
  if (tty_cli.port == 0) {
    // The kernel logs to the first port; keep it out of the operator's lines.
    run_command("/bin/dmesg -n 1");
  }
  mtd_init();
  prodcfg_init();
  opmode_discover();
  net_init();
  print_banner();
  log_printf(level_plain, "Copyright (c) Zentavio. All rights reserved.\n");
  opmode_print();
  cli_loop();
}
