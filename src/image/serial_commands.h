// Commands that download images and files over a serial port.
#pragma once

/// "flash download serial": receives an image and installs it while it arrives.
void cmd_flash_download_serial();
/// "file download serial": receives a file.
void cmd_file_download_serial();
