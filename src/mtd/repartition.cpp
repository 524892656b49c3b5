// Paths: /dev/mtdN of the partition that is changed, /dev/mtd0 for requests to the flash as a whole.
// Requests of the device's own kernel, defined below.
#include "mtd/repartition.h"

#include <fcntl.h>
#include <sys/ioctl.h>

#include <cstdio>
#include <utility>

#include "mtd/proc_mtd.h"
#include "util/log.h"
#include "util/text_buffer.h"
#include "util/unique_fd.h"

namespace {

// Magic 'M', direction write, an argument of four bytes.
constexpr unsigned long request_create = 0x40044D17;
constexpr unsigned long request_delete = 0x40044D18;
constexpr unsigned long request_merge = 0x40044D1B;

// Layout of the kernel's request.
struct new_partition {
  char name[32];
  uint64_t size;    // bytes
  uint64_t offset;  // bytes from the start of the parent
  uint32_t mask_flags;
  uint32_t padding;
};
static_assert(sizeof(new_partition) == 56);

struct creation {
  new_partition* partitions;
  uint32_t count;
};
static_assert(sizeof(void*) != 4 || sizeof(creation) == 8);

constexpr const char* any_mtd_node = "/dev/mtd0";  // deleting and merging address the whole flash

new_partition make_partition(const char* name, uint64_t size, uint64_t offset) {
  new_partition partition = {};
  snprintf(partition.name, sizeof partition.name, "%s", name);
  partition.size = size;
  partition.offset = offset;
  return partition;
}

bool delete_partition(const char* caller, int number) {
  const unique_fd device(open(any_mtd_node, O_RDONLY | O_CLOEXEC));
  if (!device) {
    log_printf(level_error, "%s: File open error on /dev/mtd0\n", caller);
    return false;
  }
  if (ioctl(device.get(), request_delete, &number) < 0) {
    log_printf(level_error, "/dev/mtd%d deletion failed\n", number);
    return false;
  }
  log_printf(level_progress, "/dev/mtd%d deleted\n", number);
  return true;
}

// Creates `count` partitions inside the one of `number`, which `device` has open under the name `node`, and
// drops that one.
bool replace_partition(const char* caller, unique_fd device, const char* node, int number,
                       new_partition* partitions, uint32_t count) {
  creation request = {partitions, count};
  const bool created = ioctl(device.get(), request_create, &request) >= 0;
  if (created) {
    log_printf(level_progress, "%s created on %s\n", partitions[0].name, node);
  } else {
    log_printf(level_error, "partition creation failed on %s\n", node);
  }
  device.reset();
  const bool replaced = created && delete_partition(caller, number);
  mtd_init_dev_names();
  return replaced;
}

}  // namespace

bool mtd_partition_split(const char* part_name, uint64_t size1, uint64_t size2) {
  log_printf(level_trace, "%s: part_name=%s size1=%llu size2=%llu\n", __func__, part_name,
             static_cast<unsigned long long>(size1), static_cast<unsigned long long>(size2));
  const int number = mtd_name_to_index(part_name);
  if (number < 0) {
    return false;
  }
  new_partition partitions[] = {make_partition(part_name, size1, 0), make_partition("user", size2, size1)};
  text_buffer<32> node;
  node.format("/dev/mtd%d", number);
  unique_fd device(open(node.text(), O_RDONLY | O_CLOEXEC));
  if (!device) {
    log_printf(level_error, "%s: open(%s)\n", __func__, node.text());
    return false;
  }
  return replace_partition(__func__, std::move(device), node.text(), number, partitions, 2);
}

bool mtd_partition_merge(const char* part_name) {
  log_printf(level_trace, "%s: part_name=%s\n", __func__, part_name);
  // The kernel takes the numbers as two bytes; "not found" becomes 255.
  uint8_t numbers[2] = {static_cast<uint8_t>(mtd_name_to_index(part_name)),
                        static_cast<uint8_t>(mtd_name_to_index("user"))};
  log_printf(level_verbose, "%s: merge_mtd_nums=%d,%d\n", __func__, numbers[0], numbers[1]);
  if (numbers[0] == 255 || numbers[1] == 255) {
    return false;
  }
  unique_fd device(open(any_mtd_node, O_RDONLY | O_CLOEXEC));
  if (!device) {
    log_printf(level_error, "%s: open(%s)\n", __func__, any_mtd_node);
    return false;
  }
  const bool merged = ioctl(device.get(), request_merge, numbers) >= 0;
  if (!merged) {
    log_printf(level_error, "%s: mtd merge failed\n", __func__);
  }
  device.reset();
  mtd_init_dev_names();
  return merged;
}

bool mtd_partition_resize_and_move(const mtd_partition* row, uint64_t size) {
  log_printf(level_trace, "%s: dev=%s size=%llu\n", __func__, row->dev_name,
             static_cast<unsigned long long>(size));
  int number = -1;
  // NOLINTNEXTLINE(cert-err34-c): the number comes from a node that this program composed
  if (sscanf(row->dev_name, "/dev/mtd%d", &number) != 1) {
    return false;
  }
  new_partition partition = make_partition(row->part_name, size, 0);
  const char* node = row->dev_name;
  unique_fd device(open(node, O_RDONLY | O_CLOEXEC));
  if (!device) {
    return false;
  }
  return replace_partition(__func__, std::move(device), node, number, &partition, 1);
}
