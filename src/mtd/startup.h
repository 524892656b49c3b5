// What start-up does with the flash map.
#pragma once

/// Records `ubi0_mtd_size_max`, splits the UBI partition when the boot environment asks for a smaller one,
/// and reads the device names. Called once. A failed split is logged and start-up goes on.
void mtd_init();
