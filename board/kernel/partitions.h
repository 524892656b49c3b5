/*
 * The device's flash layout, in the device's order. board/layout.py reads these rows too, so they keep to one line:
 * PARTITION(chip, name, size in KiB, locked at power-up).
 */
PARTITION(nor, "bootstrap", 128, true)
PARTITION(nor, "prod_config", 64, true)
PARTITION(nor, "bootloader", 512, true)
PARTITION(nor, "bootenv_1", 64, true)
PARTITION(nor, "bootenv_2", 64, true)
PARTITION(nor, "kernel_1", 12288, false)
PARTITION(nor, "kernel_2", 12288, false)
PARTITION(nor, "kernel_single", 12288, false)
PARTITION(nor, "config_loader", 16384, false)
PARTITION(nor, "param_space", 3264, false)
PARTITION(nand, "ubi0", 131072, false)
