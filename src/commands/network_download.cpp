// Nothing is erased before the whole image was received and checked once. What is written comes from a second
// transfer, each part of which is compared with the first by its header. Tools run: tftp.
// Paths: /tmp/image.rom.
#include "commands/network_download.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "commands/command.h"
#include "commands/download.h"
#include "image/destination.h"
#include "image/preparation.h"
#include "image/stream_installation.h"
#include "mtd/partition_table.h"
#include "net/address.h"
#include "net/transfer.h"
#include "util/command_pipe.h"
#include "util/exec.h"
#include "util/file_path.h"
#include "util/log.h"

namespace {

constexpr const char* header_path = image_download_header_path;

// Keeps the saved headers of one installation from being taken for those of another.
class header_file_removal {
 public:
  header_file_removal() = default;
  header_file_removal(const header_file_removal&) = delete;
  header_file_removal& operator=(const header_file_removal&) = delete;
  ~header_file_removal() { unlink(header_path); }
};

struct server_file {
  uint32_t server = 0;         // network byte order
  const char* name = nullptr;  // on the server

  // `word` is the address; takes the file name behind it. Result: false after an error.
  bool take(const char* word) {
    if (word == nullptr) {
      helper_incomplete_command();
      return false;
    }
    if (!net_parse_ip(word, "IP address", &server)) {
      return false;
    }
    name = token_shift();
    if (name == nullptr) {
      helper_incomplete_command();
      return false;
    }
    return true;
  }
};

// Fetches the file and hands the stream to `receive`. After a good transfer the client is waited for: it
// still acknowledges the last block to the server. How it ends tells nothing, for its pipe breaks when the
// image ends before the file does. After a failed one nobody needs it any more, and a server may let it wait
// for long.
template <typename Receive>
bool transfer(const long_command_line& command, Receive receive) {
  command_pipe client(command.text(), "r", command_pipe::group::its_own);
  if (!client) {
    log_printf(level_error, "%s: popen(%s) error(%s)\n", "cmd_flash_download_network", command.text(),
               strerror(errno));
    return false;
  }
  const bool received = receive(client.fd());
  received ? client.close() : client.end();
  return received;
}

bool check_image(const long_command_line& command, mtd_banks bank) {
  if (transfer(command,
               [bank](int fd) { return image_get_headers_fd(fd, bank, image_download_mask, header_path); })) {
    return true;
  }
  log_printf(level_error, "Failed to download image information\n");
  return false;
}

bool prepare_system(mtd_banks bank) {
  log_printf(level_plain, "Preparing ...\n");
  if (image_prepare_system(header_path, bank, image_download_mask)) {
    return true;
  }
  log_printf(level_error, "Failed to prepare system\n");
  return false;
}

bool install_image(const long_command_line& command, mtd_banks bank) {
  log_printf(level_plain, "Installing ...\n");
  if (transfer(command, [bank](int fd) {
        return image_write_fd(header_path, fd, bank, image_download_mask, false);
      })) {
    return true;
  }
  log_printf(level_error, "Failed to write firmware image\n");
  return false;
}

bool install_from_server(const server_file& file, mtd_banks bank) {
  const header_file_removal removal;
  long_command_line command;
  if (!net_start_for_transfer() || !net_tftp_compose_stream(command, net_octets(file.server), file.name)) {
    return false;
  }
  unlink(header_path);
  log_printf(level_plain, "Retrieving file '%s' via tftp ...\n", file.name);
  return check_image(command, bank) && prepare_system(bank) && install_image(command, bank) &&
         image_finalize_system(header_path, bank, image_download_mask);
}

}  // namespace

void cmd_flash_download_network() {
  log_printf(level_trace, "%s:\n", __func__);
  mtd_banks bank = mtd_bank_1;
  const char* word = token_shift();
  if (word != nullptr && mtd_bank_from_word(word) != mtd_bank_none) {
    bank = mtd_bank_from_word(word);
    word = token_shift();
  }
  server_file file;
  if (!file.take(word)) {
    return;
  }
  log_printf(level_info, "%s: bank=%s ip_addr=%s filename=%s\n", __func__, mtd_bank_string[bank],
             net_format_ip(file.server).text(), file.name);
  _print_done_success_failure(install_from_server(file, bank));
}

void cmd_file_download_network() {
  log_printf(level_trace, "%s:\n", __func__);
  server_file file;
  if (!file.take(token_shift())) {
    return;
  }
  const char* local = token_shift();
  if (local == nullptr) {
    local = file.name;
  }
  char path[256];
  if (!filename_copy_and_maybe_add_path(path, sizeof path, image_download_directory, local)) {
    log_printf(level_error, "Invalid local file name '%s'\n", local);
    return;
  }
  log_printf(level_info, "%s: ip_addr=%s file_remote=%s file_local=%s\n", __func__,
             net_format_ip(file.server).text(), file.name, path);
  const bool received = net_tftp_get(net_octets(file.server), file.name, path);
  if (!received) {
    log_printf(level_error, "TFTP get failed\n");
  }
  _print_done_success_failure(received);
}
