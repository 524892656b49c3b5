// Commands about the device's identity.
#pragma once

/// "show product": the factory's product ID, hardware configuration and MAC addresses, or one of them.
void cmd_show_product();
/// "show oem": what the maker of the end product has set.
void cmd_show_oem();
