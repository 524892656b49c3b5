// Commands that download images and files.
#pragma once

/// "flash download serial": receives an image over a serial port and installs it while it arrives.
void cmd_flash_download_serial();
/// "file download serial": receives a file over a serial port.
void cmd_file_download_serial();
