// See raw_io.h. Tools run: flash_unlock, flash_lock, flash_erase, flashcp, nandwrite, mtd_debug, nanddump,
// all in /usr/sbin.
#include "flash/raw_io.h"

#include <fcntl.h>
#include <mtd/mtd-user.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "mtd/partition_table.h"
#include "util/exec.h"
#include "util/log.h"
#include "util/stream.h"
#include "util/unique_fd.h"

namespace {

constexpr size_t chunk_size = 1024;

bool unlock(const char* dev_name) {
  command_line line;
  return compose_command(line, "/usr/sbin/flash_unlock %s", dev_name) && exec_system_cmd(line.text()) == 0;
}

bool lock(const char* dev_name) {
  command_line line;
  return compose_command(line, "/usr/sbin/flash_lock %s 0 -1", dev_name) && exec_system_cmd(line.text()) == 0;
}

// The protection bracket: `change` runs with the partition unlocked, and it is locked whatever comes of it.
template <typename Change>
bool with_write_access(const char* dev_name, int protect, Change change) {
  if (protect != 1) {
    return change();
  }
  const bool changed = unlock(dev_name) && change();
  return lock(dev_name) && changed;
}

bool type_is_supported(const char* caller, int type) {
  if (type == mtd_type_serial || type == mtd_type_nand) {
    return true;
  }
  log_printf(level_error, "%s: Unsupported flash type %i\n", caller, type);
  return false;
}

const char* type_name(int type) {
  return type >= 0 && type < mtd_type_count ? mtd_type_string[type] : "?";
}

unique_fd open_partition(const char* dev_name, int flags) {
  unique_fd device(open(dev_name, flags | O_CLOEXEC));
  if (!device) {
    log_printf(level_error, "Failed to open %s: error(%s)\n", dev_name, strerror(errno));
  }
  return device;
}

// MTD tools are quiet below PROGRESS.
bool quiet() {
  return log_level < level_progress;
}

bool seek_to(int fd, const char* dev_name, uint64_t offset) {
  if (lseek(fd, static_cast<off_t>(offset), SEEK_SET) == static_cast<off_t>(offset)) {
    return true;
  }
  log_printf(level_error, "Error seeking to %s offset 0x%08lx\n", dev_name,
             static_cast<unsigned long>(offset));
  return false;
}

bool write_chunk(int fd, const char* dev_name, size_t offset, const uint8_t* chunk, size_t size) {
  if (!seek_to(fd, dev_name, offset)) {
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
  const unique_fd device = open_partition(dev_name, O_RDWR);
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
  const unique_fd device = open_partition(dev_name, O_RDWR);
  if (!device) {
    return false;
  }
  if (header != nullptr) {
    // A header that was not written is found by whoever reads the partition.
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

int flash_erase_whole_partition(const char* dev_name, int /*type*/, int protect) {
  log_printf(level_trace, "%s:\n", __func__);
  const bool erased = with_write_access(dev_name, protect, [dev_name] {
    command_line line;
    return compose_command(line, "/usr/sbin/flash_erase %s%s 0 0", quiet() ? "-q " : "", dev_name) &&
           exec_system_cmd(line.text()) == 0;
  });
  return erased ? 1 : 0;
}

int flash_write_file(const char* dev_name, int protect, int type, const char* file_path) {
  log_printf(level_trace, "%s:\n", __func__);
  if (flash_erase_whole_partition(dev_name, type, protect) == 0 || !type_is_supported(__func__, type)) {
    return 0;
  }
  command_line line;
  const bool composed =
      type == mtd_type_nand
          ? compose_command(line, "/usr/sbin/nandwrite -p -q %s %s", dev_name, file_path)
          : compose_command(line, "/usr/sbin/flashcp %s%s %s", quiet() ? "" : "-v ", file_path, dev_name);
  return composed &&
                 with_write_access(dev_name, protect, [&line] { return exec_system_cmd(line.text()) == 0; })
             ? 1
             : 0;
}

int flash_write_buffer(const char* dev_name, int protect, int type, const uint8_t* buffer, size_t length) {
  log_printf(level_trace, "%s: dev_name=%s protect=%i type=%s src_ptr=%p src_len=%u\n", __func__, dev_name,
             protect, type_name(type), static_cast<const void*>(buffer), static_cast<unsigned>(length));
  if (flash_erase_whole_partition(dev_name, type, protect) == 0 || !type_is_supported(__func__, type)) {
    return 0;
  }
  const auto change = [=, caller = __func__] { return write_and_verify(caller, dev_name, buffer, length); };
  return with_write_access(dev_name, protect, change) ? 1 : 0;
}

int flash_write_buffer_fd(const char* dev_name, int protect, int type, int fd, const uint8_t* header,
                          uint32_t length, int erase_first, uint64_t* checksum) {
  log_printf(level_trace, "%s: dev_name=%s protect=%i type=%s src_len=%u\n", __func__, dev_name, protect,
             type_name(type), length);
  if (erase_first == 1 && flash_erase_whole_partition(dev_name, type, protect) == 0) {
    return 0;
  }
  if (!type_is_supported(__func__, type)) {
    return 0;
  }
  const auto change = [=] { return stream_into(dev_name, fd, header, length, checksum); };
  return with_write_access(dev_name, protect, change) ? 1 : 0;
}

int flash_read_file(const char* dev_name, int type, const char* file_path) {
  log_printf(level_trace, "%s:\n", __func__);
  mtd_info_user info = {};
  {
    const unique_fd device = open_partition(dev_name, O_RDONLY);
    if (!device) {
      return 0;
    }
    if (ioctl(device.get(), MEMGETINFO, &info) < 0) {
      log_printf(level_error, "Failed to get meminfo for %s: error(%s)\n", dev_name, strerror(errno));
      return 0;
    }
  }
  if (!type_is_supported(__func__, type)) {
    return 0;
  }
  const int size = static_cast<int>(info.size);
  command_line line;
  const bool composed =
      type == mtd_type_nand
          ? compose_command(line, "/usr/sbin/nanddump -f %s -l %i -o -b %s", file_path, size, dev_name)
          : compose_command(line, "/usr/sbin/mtd_debug read %s 0 %i %s", dev_name, size, file_path);
  return composed && exec_system_cmd(line.text()) == 0 ? 1 : 0;
}

bool flash_read_at(int fd, const char* dev_name, uint64_t offset, void* buffer, size_t size) {
  if (!seek_to(fd, dev_name, offset)) {
    return false;
  }
  const ssize_t got = read(fd, buffer, size);
  if (got < 0) {
    log_printf(level_error, "Error reading at %s offset 0x%08lx\n", dev_name,
               static_cast<unsigned long>(offset));
    return false;
  }
  if (got != static_cast<ssize_t>(size)) {
    log_printf(level_error, "Short read (%i/%i bytes) at %s offset 0x%08lx\n", static_cast<int>(got),
               static_cast<int>(size), dev_name, static_cast<unsigned long>(offset));
    return false;
  }
  return true;
}
