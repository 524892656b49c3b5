// Commands that control the wired interface, show it and use it.
#pragma once

/// "network ethernet link", "start" and "stop".
void cmd_network_ethernet_link();
void cmd_network_ethernet_start();
void cmd_network_ethernet_stop();
/// "network info": addresses and link.
void cmd_network_info();
/// "network ping": four echo requests.
void cmd_network_ping();
