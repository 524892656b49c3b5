// Telling the boot loader: kernel size, then boot bank. Environment variables set: kernel_size_1,
// kernel_size_2, kernel_size_single, bootbank.
#include "image/installation.h"

#include "bootenv/environment.h"
#include "image/destination.h"
#include "util/log.h"
#include "util/text_buffer.h"

namespace {

bool set_kernel_size(const installation& state) {
  text_buffer<32> name;
  text_buffer<16> value;
  name.format("kernel_size_%s", mtd_bank_string[state.bank]);
  value.format("%X", state.kernel_length);
  log_printf(level_progress, "Setting '%s=%s' in the boot environment\n", name.text(), value.text());
  if (uboot_env_set_val(name.text(), value.text())) {
    return true;
  }
  log_printf(level_error, "Failed to set %s=%s in the boot environment\n", name.text(), value.text());
  return false;
}

bool set_bootbank(const installation& state) {
  const char* bank = mtd_bank_string[state.bank];
  log_printf(level_progress, "Setting 'bootbank=%s' in the boot environment\n", bank);
  if (uboot_env_set_val("bootbank", bank)) {
    return true;
  }
  log_printf(level_error, "Failed to set bootbank=%s in the boot environment\n", bank);
  return false;
}

}  // namespace

void installation_count_part(installation& state, uint32_t contents_type, uint32_t length) {
  ++state.written;
  if (contents_type == image_contents_kernel) {
    state.kernel_length = length;
  }
  state.switches_bank = state.switches_bank || image_contents_switch_bank(contents_type);
}

bool installation_finish(const installation& state) {
  log_printf(level_info, "Wrote %i image parts, skipped %i\n", state.written, state.skipped);
  if (!state.switches_bank) {
    return true;
  }
  return set_kernel_size(state) && set_bootbank(state);
}
