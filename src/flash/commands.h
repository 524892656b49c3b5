// Commands that look at and wipe the partitions of the table.
#pragma once

/// "flash info": lists the table.
void cmd_flash_info();
/// "flash analyze": shows what each partition holds; ended by Ctrl-C.
void cmd_flash_analyze();
/// "flash clean": erases all that is not needed to boot the loader.
void cmd_flash_clean();
/// "flash kill": erases kernel and root file system images of one bank.
void cmd_flash_kill();
