// What the tests of the UBI subsystem share: the device's volumes in sysfs, and the lines that attach and
// give back.
#ifndef UBI_TEST_H
#define UBI_TEST_H

#include "loader_test.h"

class ubi_test : public loader_test {
 protected:
  ubi_test() { ubi0_mtd_size_max = 0x8000000; }

  // An attribute of the UBI device or, behind "ubi0_N/", of a volume.
  void set_attribute(const std::string& name, const std::string& content) const {
    const std::filesystem::path path = "/sys/class/ubi/ubi0/" + name;
    std::filesystem::create_directories(path.parent_path());
    root.write_file(path, content);
  }

  // Logical erase blocks of rootfs_1, rootfs_2 and rootfs_single, and of what is free.
  void set_lebs(int bank_1, int bank_2, int single, int free) const {
    const int lebs[] = {bank_1, bank_2, single};
    for (int volume = 0; volume < 3; volume++) {
      set_attribute("ubi0_" + std::to_string(volume) + "/reserved_ebs", std::to_string(lebs[volume]) + "\n");
    }
    set_attribute("avail_eraseblocks", std::to_string(free) + "\n");
  }

  // A UBI partition of two erase blocks, which is quickly read.
  enum fill : char { in_use = '\0', erased = '\xFF' };
  void put_ubi0(fill content) const {
    constexpr uint64_t size = 0x40000;
    std::vector<partition_row> rows;
    for (const mtd_partition& row : mtd_config_table) {
      if (row.volume_size == -1) rows.push_back({row.part_name, size, size / 2});
    }
    root.set_partitions(rows);
    root.write_file("/dev/mtd10", std::string(size, content));
    ubi0_mtd_size_max = size;
  }

  static inline const std::string quiet = " &> /dev/null";
  static inline const std::string attach = "/usr/sbin/ubiattach /dev/ubi_ctrl -d 0 -p /dev/mtd10" + quiet;
  static inline const std::string nodes = "/sbin/mdev -s" + quiet;
  static inline const std::string detach = "/usr/sbin/ubidetach /dev/ubi_ctrl -p /dev/mtd10" + quiet;
  static inline const std::string unmount = "/bin/umount /mnt" + quiet;
  static inline const std::string get_bank = "/usr/sbin/fw_printenv -n bootbank 2>/dev/null";

  static std::string mount(const std::string& volume) {
    return "/bin/mount -t ubifs -o sync,compr=zlib ubi0:" + volume + " /mnt" + quiet;
  }
  static std::string resize(int volume, int lebs) {
    return "/usr/sbin/ubirsvol /dev/ubi0 -n " + std::to_string(volume) + " -S " + std::to_string(lebs) +
           quiet;
  }
  static std::string make_volume(int volume, const std::string& size, const std::string& name) {
    return "/usr/sbin/ubimkvol /dev/ubi0 -n " + std::to_string(volume) + " " + size + " -N " + name + quiet;
  }
  static lines make_volumes(int rootfs_kib, int private_kib) {
    const std::string rootfs = "-s " + std::to_string(rootfs_kib) + "KiB";
    const std::string rest = "-s " + std::to_string(private_kib) + "KiB";
    return {make_volume(0, rootfs, "rootfs_1"),         nodes, make_volume(1, rootfs, "rootfs_2"),   nodes,
            make_volume(2, "-s 1KiB", "rootfs_single"), nodes, make_volume(3, rest, "vexo_private"), nodes,
            make_volume(4, "-m", "vexo_user"),          nodes};
  }
  // A format of a partition that has its size already.
  static lines format_all(int rootfs_kib, int private_kib) {
    return joined({{detach, "/usr/sbin/ubiformat /dev/mtd10 -y -q", attach, nodes},
                   make_volumes(rootfs_kib, private_kib),
                   {detach}});
  }
  // The lines of a shell session, several of them joined.
  static lines joined(std::initializer_list<lines> parts) {
    lines all;
    for (const lines& part : parts)
      all.insert(all.end(), part.begin(), part.end());
    return all;
  }
  // What the schema check asks for, twice.
  static inline const lines schema_check = {get_bank, get_bank};
};

#endif
