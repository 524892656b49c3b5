// A sender pushes image or file into a serial port, usually the one that the shell sits on.
// Path: /tmp/image.rom, removed if a network installation has left it.
#include "commands/serial_download.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "commands/command.h"
#include "commands/download.h"
#include "console/transfer_end.h"
#include "image/destination.h"
#include "image/stream_installation.h"
#include "mtd/partition_table.h"
#include "tty/port.h"
#include "util/file_path.h"
#include "util/log.h"
#include "util/parse.h"

namespace {

constexpr unsigned settle_seconds = 1;

// Takes an optional port number and speed. Result: false after an error.
bool take_port_and_rate(tty_port& port) {
  uint32_t number;
  if (const char* word = token_shift()) {
    if (!strdectoul(word, &number) || number > tty_highest_port) {
      log_printf(level_error, "Invalid serial port '%s', range is %i to %i\n", word, 0, tty_highest_port);
      return false;
    }
    port.port = static_cast<int32_t>(number);
  }
  if (const char* word = token_shift()) {
    if (!strdectoul(word, &number) || !tty_speed_is_valid(number)) {
      log_printf(level_error, "Invalid baud rate '%s'\n", word);
      return false;
    }
    port.speed = number;
  }
  return true;
}

int selected(image_contents type) {
  return static_cast<int>(image_mask_selects(image_download_mask, type));
}

void log_download(const char* caller, const tty_port& port, mtd_banks bank) {
  const char* bank_name = mtd_bank_string[bank];
  const int speed = static_cast<int>(port.speed);
  log_printf(level_info, "%s: bank=%s dev=%s%i speed=%i\n", caller, bank_name, port.device, port.port, speed);
  log_printf(level_info,
             "%s: tty_dev=%s%i speed=%i bank=%s bs(%i)=%i bl(%i)=%i krn(%i)=%i rfsje(%i)=%i rfsu(%i)=%i "
             "rfsl(%i)=%i\n",
             caller, port.device, port.port, speed, bank_name,                                    //
             image_contents_bootstrap, selected(image_contents_bootstrap),                        //
             image_contents_bootloader, selected(image_contents_bootloader),                      //
             image_contents_kernel, selected(image_contents_kernel),                              //
             image_contents_rootfs_jffs2_or_ext2, selected(image_contents_rootfs_jffs2_or_ext2),  //
             image_contents_rootfs_ubifs_16keb, selected(image_contents_rootfs_ubifs_16keb),      //
             image_contents_rootfs_tar_lzma, selected(image_contents_rootfs_tar_lzma));
}

// Installs what arrives at the port. Messages are held back, because the port may be the console.
bool install_from_port(tty_port& port, mtd_banks bank) {
  log_suspend();
  bool installed = false;
  bool complete = false;
  if (!tty_open_raw(&port)) {
    log_printf(level_error, "Failed to open serial port (%s)\n", strerror(errno));
  } else {
    installed = image_write_fd(nullptr, port.fd, bank, image_download_mask, true);
    complete = installed && !tty_sender_goes_on(port);
    tty_close_raw(&port);
  }
  sleep(settle_seconds);
  log_resume();
  tty_end_transfer(port, complete);
  return installed;
}

}  // namespace

void cmd_flash_download_serial() {
  log_printf(level_trace, "%s:\n", __func__);
  tty_port port = tty_cli;
  mtd_banks bank = mtd_bank_1;
  if (const char* word = token_shift()) {
    bank = mtd_bank_from_word(word);
    if (bank == mtd_bank_none) {
      log_printf(level_error, "Invalid flash bank '%s'\n", word);
      return;
    }
  }
  if (!take_port_and_rate(port)) {
    return;
  }
  log_download(__func__, port, bank);
  unlink(image_download_header_path);
  log_printf(level_plain, "Begin serial download...\n");
  sleep(settle_seconds);
  const bool installed = install_from_port(port, bank);
  if (!installed) {
    log_printf(level_error, "Failed to write firmware image\n");
  }
  unlink(image_download_header_path);
  _print_done_success_failure(installed);
}

void cmd_file_download_serial() {
  log_printf(level_trace, "%s:\n", __func__);
  tty_port port = tty_cli;
  const char* name = token_shift();
  if (name == nullptr) {
    helper_incomplete_command();
    return;
  }
  char path[256];
  if (!filename_copy_and_maybe_add_path(path, sizeof path, image_download_directory, name)) {
    log_printf(level_error, "Invalid file name or path '%s'\n", name);
    return;
  }
  if (!take_port_and_rate(port)) {
    return;
  }
  log_printf(level_info, "%s: filename=%s dev=%s%i speed=%i\n", __func__, path, port.device, port.port,
             static_cast<int>(port.speed));
  bool is_partial;
  const bool received = tty_receive_file(&port, path, &is_partial);
  tty_end_transfer(port, received);
  if (is_partial) {
    unlink(path);
  }
  if (!received) {
    log_printf(level_error, "serial download failed\n");
  }
  _print_done_success_failure(received);
}
