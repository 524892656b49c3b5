// Commands that control the wired interface, show it and use it.
#pragma once

#include "commands/command.h"

// clang-format off

/// "network ethernet link", "start" and "stop": speed and duplex; static addresses or DHCP; down again.
void cmd_network_ethernet_link();
void cmd_network_ethernet_start();
void cmd_network_ethernet_stop();
inline constexpr command_record commands_network_ethernet[] = {
    {.name = "link", .usage = "[<if_name>] auto|auto-10h|auto-10f|auto-100h|auto-100f|10h|10f|100h|100f",
     .help = "Set the link mode\n"
             "      <if_name> = interface name (default eth0)\n"
             "      auto = auto speed and duplex\n"
             "      auto-10h = 10 Mbps, Half Duplex (autoneg on)\n"
             "      auto-10f = 10 Mbps, Full Duplex (autoneg on)\n"
             "      auto-100h = 100 Mbps, Half Duplex (autoneg on)\n"
             "      auto-100f = 100 Mbps, Full Duplex (autoneg on)\n"
             "      10h = 10 Mbps, Half Duplex (autoneg off)\n"
             "      10f = 10 Mbps, Full Duplex (autoneg off)\n"
             "      100h = 100 Mbps, Half Duplex (autoneg off)\n"
             "      100f = 100 Mbps, Full Duplex (autoneg off)",
     .handler = cmd_network_ethernet_link},
    {.name = "start", .usage = "[<if_name>] [<ip_addr> <netmask> [<gateway>]]",
     .help = "Start the ethernet network\n"
             "      <if_name> = interface name (default eth0)\n"
             "      <ip_addr> = IP Address to configure locally\n"
             "      <netmask> = Netmask to configure locally\n"
             "      <gateway> = IP Address of gateway\n"
             "    With no network parameters, DHCP will be used",
     .handler = cmd_network_ethernet_start},
    {.name = "stop", .usage = "[<if_name>]",
     .help = "Stop the ethernet network\n"
             "      <if_name> = interface name (default eth0)",
     .handler = cmd_network_ethernet_stop},
};

/// "network info": shows addresses and link.
void cmd_network_info();
/// "network ping": sends four echo requests.
void cmd_network_ping();
inline constexpr command_record commands_network[] = {
    {.name = "ethernet", .usage = "network ethernet ",
     .help = "Execute an ethernet network command",
     .subtable = commands_network_ethernet, .subtable_count = command_count(commands_network_ethernet)},
    {.name = "info", .usage = "[<if_name>]",
     .help = "Display network info\n"
             "      <if_name> = interface name (default all)",
     .handler = cmd_network_info},
    {.name = "ping", .usage = "[<if_name>] <ip_addr>",
     .help = "Ping a node on the network\n"
             "      <if_name> = interface name (defaults to first found running)",
     .handler = cmd_network_ping},
};

// clang-format on
