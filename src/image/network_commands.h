// Commands that download images and files by TFTP.
#pragma once

/// "flash download network": fetches an image twice, first to check all of it, then to install it.
void cmd_flash_download_network();
/// "file download network": fetches a file.
void cmd_file_download_network();
