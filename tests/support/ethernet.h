/* The wired interface of a device root: the kernel stand-in answers requests about it, the recording tool
 * lists and changes it as ifconfig. Its state is the file ETHERNET_FILE, lines of key=value; without the file
 * there is no interface. ethernet.py is the side of the console tests.
 *
 *     hwaddr=00:20:4a:00:00:02
 *     address=10.0.2.15      empty: none
 *     netmask=255.255.255.0  empty: none
 *     up=1
 *     cable=1                0: the link is not detected, and never listed as RUNNING
 *     up_after=0             listings before the next one shows UP; then the same for RUNNING
 *     running_after=0
 *     settings=...           the 44 bytes of struct ethtool_cmd (linux/ethtool.h) in hex */
#ifndef ETHERNET_H
#define ETHERNET_H

#define ETHERNET_FILE "/.harness/eth0"

/* A card for 10 and 100 Mbit/s that has negotiated 100 full, taken down, with a cable, without an address. */
#define ETHERNET_FRESH                                                                         \
  "hwaddr=00:20:4a:00:00:02\naddress=\nnetmask=\nup=0\ncable=1\nup_after=0\nrunning_after=0\n" \
  "settings=01000000cf020000cf0200006400010002000100000000000000000000000000000000000000000000000000\n"

/* Answers an ioctl on a socket as the system call does: its result, or -1 and errno. `ifreq` is a struct
 * ifreq. */
int ethernet_request(unsigned long request, void* ifreq);

/* The tool ifconfig with these arguments, args[0] its name: lists the interface, or changes its state.
 * Result: its exit status. */
int ethernet_ifconfig(int count, char** args);

#endif
