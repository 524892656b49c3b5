// Tools run: /usr/sbin/flashcp onto serial flash, /usr/sbin/nandwrite onto nand flash. Buffers and streams
// are written through the partition's node.
#include "flash/write.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "flash/erase.h"
#include "flash/protection.h"
#include "flash/read.h"
#include "util/exec.h"
#include "util/log.h"
#include "util/stream.h"

namespace {

constexpr size_t chunk_size = 1024;

const char* type_name(mtd_types type) {
  return type >= 0 && type < mtd_type_count ? mtd_type_string[type] : "?";
}

bool write_chunk(int fd, const char* dev_name, size_t offset, const uint8_t* chunk, size_t size) {
  if (!flash_seek(fd, dev_name, offset)) {
    return false;
  }
  const ssize_t written = write(fd, chunk, size);
  if (written < 0) {
    log_printf(level_error, "Error writing sector at %s offset 0x%08lx\n", dev_name,
               static_cast<unsigned long>(offset));
    return false;
  }
  if (written != static_cast<ssize_t>(size)) {
    log_printf(level_error, "Short write (%i/%i bytes) at %s offset 0x%08lx\n", static_cast<int>(written),
               static_cast<int>(size), dev_name, static_cast<unsigned long>(offset));
    return false;
  }
  return true;
}

bool verify_chunk(int fd, const char* dev_name, size_t offset, const uint8_t* chunk, size_t size) {
  uint8_t stored[chunk_size];
  if (!flash_read_at(fd, dev_name, offset, stored, size)) {
    return false;
  }
  if (memcmp(stored, chunk, size) != 0) {
    log_printf(level_error, "Failed verify in chunk at %s offset 0x%08lx\n", dev_name,
               static_cast<unsigned long>(offset));
    return false;
  }
  return true;
}

// Calls `act` for each chunk until it fails. Result: false when it did.
template <typename Act>
bool for_each_chunk(size_t length, Act act) {
  size_t done = 0;
  while (done < length) {
    const size_t size = std::min(chunk_size, length - done);
    if (!act(done, size)) {
      return false;
    }
    done += size;
  }
  return true;
}

bool write_and_verify(const char* caller, const char* dev_name, const uint8_t* buffer, size_t length) {
  const unique_fd device = flash_open(dev_name, O_RDWR);
  if (!device) {
    return false;
  }
  const bool written = for_each_chunk(length, [&](size_t offset, size_t size) {
    log_printf(level_verbose, "%s: writing to %s offset 0x%08lx len=%i\n", caller, dev_name,
               static_cast<unsigned long>(offset), static_cast<int>(size));
    return write_chunk(device.get(), dev_name, offset, buffer + offset, size);
  });
  const bool verified = for_each_chunk(length, [&](size_t offset, size_t size) {
    log_printf(level_verbose, "%s: verifying %s offset 0x%08lx len=%i\n", caller, dev_name,
               static_cast<unsigned long>(offset), static_cast<int>(size));
    return verify_chunk(device.get(), dev_name, offset, buffer + offset, size);
  });
  return written && verified;
}

bool stream_into(const char* dev_name, int fd, const uint8_t* header, uint32_t length, uint64_t* checksum) {
  const unique_fd device = flash_open(dev_name, O_RDWR);
  if (!device) {
    return false;
  }
  if (header != nullptr) {
    // Like a piece that is not written, a header is missed by whoever reads the partition.
    [[maybe_unused]] const ssize_t ignored = write(device.get(), header, image_header_size);
  }
  long long written = 0;
  const auto program = [&device, &written](const uint8_t* piece, size_t size) {
    written += write(device.get(), piece, size);
    return true;
  };
  if (stream_receive({.fd = fd, .total = length}, checksum, program) != stream_status::complete) {
    log_printf(level_error, "Failed to read firmware image [%s]\n", strerror(errno));
    return false;
  }
  log_printf(level_verbose, "flash_write_buffer_fd received %d bytes, written %d bytes to flash\n",
             static_cast<int>(length), static_cast<int>(written));
  return true;
}

}  // namespace

bool flash_write_file(const mtd_partition& row, const char* file_path) {
  log_printf(level_trace, "%s:\n", __func__);
  if (!flash_erase_whole_partition(row) || !flash_type_is_supported(__func__, row.type)) {
    return false;
  }
  command_line line;
  const bool composed =
      row.type == mtd_type_nand
          ? compose_command(line, "/usr/sbin/nandwrite -p -q %s %s", row.dev_name, file_path)
          : compose_command(line, "/usr/sbin/flashcp %s%s %s", flash_tools_are_quiet() ? "" : "-v ",
                            file_path, row.dev_name);
  return composed && flash_change(row, [&line] { return run_command(line.text()); });
}

bool flash_write_buffer(const mtd_partition& row, const uint8_t* buffer, size_t length) {
  log_printf(level_trace, "%s: dev_name=%s protect=%i type=%s src_ptr=%p src_len=%u\n", __func__,
             row.dev_name, row.protect, type_name(row.type), static_cast<const void*>(buffer),
             static_cast<unsigned>(length));
  if (!flash_erase_whole_partition(row) || !flash_type_is_supported(__func__, row.type)) {
    return false;
  }
  return flash_change(row, [&row, buffer, length, caller = __func__] {
    return write_and_verify(caller, row.dev_name, buffer, length);
  });
}

bool flash_write_buffer_fd(const mtd_partition& row, int fd, const uint8_t* header, uint32_t length,
                           bool erase_first, uint64_t* checksum) {
  log_printf(level_trace, "%s: dev_name=%s protect=%i type=%s src_len=%u\n", __func__, row.dev_name,
             row.protect, type_name(row.type), length);
  if (erase_first && !flash_erase_whole_partition(row)) {
    return false;
  }
  if (!flash_type_is_supported(__func__, row.type)) {
    return false;
  }
  return flash_change(row, [&row, fd, header, length, checksum] {
    return stream_into(row.dev_name, fd, header, length, checksum);
  });
}
