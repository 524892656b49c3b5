// The variable is read and written through bootenv/environment.
#include "mtd/mtdparts.h"

#include <cstdio>
#include <cstring>

#include "bootenv/environment.h"
#include "util/log.h"
#include "util/text_buffer.h"

namespace {

constexpr const char* variable = "mtdparts";
constexpr size_t value_size = 256;

#define MTDPARTS_PATTERN "atmel_nand:%uk(%s),-(%s)"

}  // namespace

bool mtdparts_parse(const char* value, const char* ubi_dev_name, uint32_t* size_kib) {
  char rest[value_size] = "";
  char unused[value_size];
  unsigned kib = 0;
  // The first text takes everything up to white space, the rest of the pattern too: two conversions are what
  // a good value gives. NOLINTNEXTLINE(cert-err34-c): an overflowing size is compared with the flash's size
  if (sscanf(value, "atmel_nand:%uk(%255s),-(%255s)", &kib, rest, unused) != 2 ||
      strncmp(rest, ubi_dev_name, strlen(ubi_dev_name)) != 0) {
    return false;
  }
  *size_kib = kib;
  return true;
}

bool ubi_get_mtd_size_from_env(const char* ubi_dev_name, uint32_t* size_kib) {
  log_printf(level_trace, "%s:\n", __func__);
  char value[value_size];
  if (uboot_env_get_val(variable, value, sizeof value) && mtdparts_parse(value, ubi_dev_name, size_kib)) {
    return true;
  }
  log_printf(level_verbose, "%s: Failed to find %s=%s in the boot environment\n", __func__, variable,
             MTDPARTS_PATTERN);
  return false;
}

bool ubi_set_mtd_size_to_env(const char* ubi_dev_name, uint32_t size_kib) {
  log_printf(level_trace, "%s:\n", __func__);
  if (size_kib == 0) {
    log_printf(level_verbose, "%s: Clearing %s in the boot environment\n", __func__, variable);
    if (!uboot_env_set_val(variable, nullptr)) {
      log_printf(level_error, "Failed to clear %s in the boot environment\n", variable);
      return false;
    }
    return true;
  }
  text_buffer<value_size> value;
  // The quotes keep the parentheses from the shell that runs the environment tool.
  text_buffer<value_size + 2> quoted;
  const bool composed =
      value.format(MTDPARTS_PATTERN, size_kib, ubi_dev_name, "user") && quoted.format("\"%s\"", value.text());
  log_printf(level_verbose, "%s: Setting %s=%s in the boot environment\n", __func__, variable, value.text());
  if (!composed || !uboot_env_set_val(variable, quoted.text())) {
    log_printf(level_error, "Failed to set %s=%s in the boot environment\n", variable, value.text());
    return false;
  }
  return true;
}
