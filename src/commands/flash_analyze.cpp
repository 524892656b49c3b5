// The columns of "flash analyze", and what stands in them for a row.
#include "commands/flash_analyze.h"

#include "analysis/partition_analysis.h"
#include "analysis/ubifs_analysis.h"
#include "bootenv/environment.h"
#include "commands/command.h"
#include "flash/clean_check.h"
#include "mtd/mtdparts.h"
#include "mtd/partition_table.h"
#include "util/log.h"
#include "util/printable.h"
#include "util/signals.h"
#include "util/text_buffer.h"

namespace {

#define ANALYZE_HEADING_FORMAT "%-10s %-15s %-3s %-9s %-12s %-3s %-10s %-8s\n"

// What is known of the device before the first row.
struct device_state {
  mtd_banks active_bank;
  bool ubi0_is_clean;
};

// The right part of a line, "-" where nothing is known.
struct row_findings {
  const char* status = "-";
  text_buffer<17> version;
  text_buffer<5> code;
  text_buffer<17> size_hex;
  text_buffer<9> crc_hex;

  row_findings() {
    version.format("-");
    code.format("-");
    size_hex.format("-");
    crc_hex.format("-");
  }
  void set_size(uint64_t bytes) { size_hex.format("%llx", static_cast<unsigned long long>(bytes)); }
  void set_record(const flash_analysis& record) {
    set_size(record.size);
    if (record.crc != 0) {
      crc_hex.format("%08x", record.crc);
    }
    version.format("%s", printable<16>(record.version).text());
    code.format("%s", printable<4>(record.code).text());
  }
};

// The device has either the rows of banks 1 and 2 or those of the single bank in use.
bool is_of_other_schema(const mtd_partition& row, mtd_banks active_bank) {
  const bool dual_row = row.bank == mtd_bank_1 || row.bank == mtd_bank_2;
  return active_bank == mtd_bank_single ? dual_row : row.bank == mtd_bank_single;
}

// The size that the boot environment says, or else that of the flash.
uint64_t ubi_partition_size(const mtd_partition& row) {
  uint32_t size_kib = 0;
  return ubi_get_mtd_size_from_env(row.part_name, &size_kib) ? uint64_t{size_kib} * 1024 : ubi0_mtd_size_max;
}

const char* status_of_recognised(const mtd_partition& row, const flash_analysis& record,
                                 mtd_banks active_bank) {
  if (record.clean != 0) {
    return "clean";
  }
  return row.bank == mtd_bank_none || row.bank == active_bank ? "active" : "inactive";
}

row_findings examine(const mtd_partition& row, const device_state& device) {
  row_findings findings;
  const bool in_ubi = row.format == mtd_format_ubifs;
  if (is_of_other_schema(row, device.active_bank) || row.image == mtd_image_reserved) {
    return findings;
  }
  if (row.format == mtd_format_ubi) {
    const uint64_t size = ubi_partition_size(row);
    if (!sigint_interrupted()) {  // else the size in the boot environment may not have been read
      findings.set_size(size);
    }
    return findings;
  }
  if (in_ubi && device.ubi0_is_clean) {
    findings.status = "clean";
    return findings;
  }
  flash_analysis record = {};
  if (flash_analyze(row, &record)) {
    findings.set_record(record);
    findings.status = status_of_recognised(row, record, device.active_bank);
    return findings;
  }
  const bool clean = in_ubi ? device.ubi0_is_clean : flash_is_clean(row.dev_name);
  if (!sigint_interrupted()) {  // else nobody has looked at all of it
    findings.status = clean ? "clean" : "dirty";
  }
  return findings;
}

void print_row(const mtd_partition& row, const device_state& device) {
  log_printf(level_plain, "%-10s %-15s %-3s ", mtd_short_node(row), row.part_name,
             mtd_bank_string_short[row.bank]);
  const row_findings findings = examine(row, device);
  log_printf(level_plain, "%-9s %-12s %-2s  %9s  %8s\n", findings.status, findings.version.text(),
             findings.code.text(), findings.size_hex.text(), findings.crc_hex.text());
}

void print_table(const device_state& device) {
  const mtd_partition* row = nullptr;
  while (test_interrupted == 0 && (row = mtd_get_by_type(row, mtd_type_any)) != nullptr) {
    print_row(*row, device);
  }
}

}  // namespace

void cmd_flash_analyze() {
  log_printf(level_trace, "%s:\n", __func__);
  if (const char* surplus = token_shift()) {
    helper_invalid_parameter(surplus);
    return;
  }
  device_state device = {};
  const mtd_banks bank = uboot_env_get_active_bank();
  device.active_bank = bank != mtd_bank_none ? bank : mtd_bank_1;
  sigint_install_test_interrupt();
  log_printf(level_plain, "\n" ANALYZE_HEADING_FORMAT, "partition", "name", "bk", "status", "version", "pc",
             "size-hex", "crc-hex");
  log_printf(level_plain, ANALYZE_HEADING_FORMAT, "---------", "--------------", "--", "--------",
             "-----------", "--", "---------", "--------");
  device.ubi0_is_clean = ubi_is_clean("ubi0");
  log_printf(level_verbose, "ubi0_is_clean=%d\n", device.ubi0_is_clean ? 1 : 0);
  print_table(device);
  log_printf(level_plain, "\n");
  sigint_install_ignore();
  const bool interrupted = test_interrupted != 0;
  if (interrupted) {
    log_printf(level_error, "Terminated by signal\n");
  }
  _print_done_success_failure(!interrupted);
}
