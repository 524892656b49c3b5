/* The wired interface of a device root, as ethernet.h says. */
#define _GNU_SOURCE
#include "ethernet.h"

#include <arpa/inet.h>
#include <errno.h>
#include <fcntl.h>
#include <linux/ethtool.h>
#include <linux/sockios.h>
#include <net/if.h>
#include <stdbool.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/syscall.h>
#include <unistd.h>

struct interface {
  char hwaddr[32];
  char address[32];
  char netmask[32];
  int up;
  int cable;
  int up_after;
  int running_after;
  struct ethtool_cmd settings;
};

/* By system call: a test may have made the C library's own functions fail. */
static FILE* open_state(int flags, const char* mode) {
  long fd = syscall(SYS_openat, AT_FDCWD, ETHERNET_FILE, flags | O_CLOEXEC, 0644);
  return fd < 0 ? NULL : fdopen((int)fd, mode);
}

static void set_settings(struct ethtool_cmd* settings, const char* hex) {
  unsigned char* bytes = (unsigned char*)settings;
  for (size_t i = 0; i < sizeof *settings && sscanf(hex + 2 * i, "%2hhx", &bytes[i]) == 1; i++) {
  }
}

static void set_value(struct interface* interface, const char* key, const char* value) {
  const struct {
    const char* key;
    char* text;
  } texts[] = {
      {"hwaddr", interface->hwaddr}, {"address", interface->address}, {"netmask", interface->netmask}};
  const struct {
    const char* key;
    int* number;
  } numbers[] = {{"up", &interface->up},
                 {"cable", &interface->cable},
                 {"up_after", &interface->up_after},
                 {"running_after", &interface->running_after}};
  for (size_t i = 0; i < sizeof texts / sizeof texts[0]; i++) {
    if (strcmp(key, texts[i].key) == 0) {
      snprintf(texts[i].text, sizeof interface->hwaddr, "%s", value);
    }
  }
  for (size_t i = 0; i < sizeof numbers / sizeof numbers[0]; i++) {
    if (strcmp(key, numbers[i].key) == 0) {
      *numbers[i].number = atoi(value);
    }
  }
  if (strcmp(key, "settings") == 0) {
    set_settings(&interface->settings, value);
  }
}

static bool load(struct interface* interface) {
  char line[256];
  FILE* file = open_state(O_RDONLY, "r");
  *interface = (struct interface){0};
  if (file == NULL) {
    return false;
  }
  while (fgets(line, sizeof line, file) != NULL) {
    char* value = strchr(line, '=');
    line[strcspn(line, "\n")] = '\0';
    if (value != NULL) {
      *value = '\0';
      set_value(interface, line, value + 1);
    }
  }
  fclose(file);
  return true;
}

static void store(const struct interface* interface) {
  FILE* file = open_state(O_WRONLY | O_TRUNC, "w");
  if (file == NULL) {
    return;
  }
  fprintf(file,
          "hwaddr=%s\naddress=%s\nnetmask=%s\nup=%d\ncable=%d\nup_after=%d\nrunning_after=%d\nsettings=",
          interface->hwaddr, interface->address, interface->netmask, interface->up, interface->cable,
          interface->up_after, interface->running_after);
  for (size_t i = 0; i < sizeof interface->settings; i++) {
    fprintf(file, "%02x", ((const unsigned char*)&interface->settings)[i]);
  }
  fputc('\n', file);
  fclose(file);
}

/* ------------------------------------------------------------------ requests */

static int refuse(int error) {
  errno = error;
  return -1;
}

static int answer_ip(struct ifreq* ifreq, const char* text) {
  struct sockaddr_in internet = {.sin_family = AF_INET};
  if (inet_pton(AF_INET, text, &internet.sin_addr) != 1) {
    return refuse(EADDRNOTAVAIL);
  }
  memcpy(&ifreq->ifr_addr, &internet, sizeof internet);
  return 0;
}

static int answer_hwaddr(struct ifreq* ifreq, const char* text) {
  unsigned char* bytes = (unsigned char*)ifreq->ifr_hwaddr.sa_data;
  ifreq->ifr_hwaddr.sa_family = 1; /* ARPHRD_ETHER */
  sscanf(text, "%hhx:%hhx:%hhx:%hhx:%hhx:%hhx", &bytes[0], &bytes[1], &bytes[2], &bytes[3], &bytes[4],
         &bytes[5]);
  return 0;
}

static int answer_ethtool(struct interface* interface, void* command) {
  switch (*(uint32_t*)command) {
    case ETHTOOL_GSET:
      memcpy(command, &interface->settings, sizeof interface->settings);
      return 0;
    case ETHTOOL_SSET:
      memcpy(&interface->settings, command, sizeof interface->settings);
      interface->settings.cmd = ETHTOOL_GSET;
      store(interface);
      return 0;
    case ETHTOOL_GLINK:
      ((struct ethtool_value*)command)->data = interface->cable != 0;
      return 0;
    default:
      return refuse(EOPNOTSUPP);
  }
}

int ethernet_request(unsigned long request, void* argument) {
  struct ifreq* ifreq = argument;
  struct interface interface;
  if (strcmp(ifreq->ifr_name, "eth0") != 0 || !load(&interface)) {
    return refuse(ENODEV);
  }
  switch (request) {
    case SIOCGIFADDR:
      return answer_ip(ifreq, interface.address);
    case SIOCGIFNETMASK:
      return answer_ip(ifreq, interface.netmask);
    case SIOCGIFHWADDR:
      return answer_hwaddr(ifreq, interface.hwaddr);
    case SIOCETHTOOL:
      return answer_ethtool(&interface, ifreq->ifr_data);
    default:
      return refuse(ENOTTY);
  }
}

/* ------------------------------------------------------------------ ifconfig */

static bool counted_down(int* polls) {
  if (*polls > 0) {
    --*polls;
    return false;
  }
  return true;
}

static void list(struct interface* interface) {
  bool up = interface->up && counted_down(&interface->up_after);
  bool running = up && interface->cable && counted_down(&interface->running_after);
  printf("eth0      Link encap:Ethernet  HWaddr %s\n", interface->hwaddr);
  if (interface->address[0] != '\0') {
    printf("          inet addr:%s  Mask:%s\n", interface->address, interface->netmask);
  }
  printf("          %sBROADCAST %sMULTICAST  MTU:1500  Metric:1\n\n", up ? "UP " : "",
         running ? "RUNNING " : "");
}

/* Only the last word, or the word behind the one that names what is set, is looked at. */
static void change(struct interface* interface, int count, char** args) {
  const char* what = args[2];
  const char* last = args[count - 1];
  if (strcmp(what, "up") == 0 || strcmp(what, "down") == 0) {
    interface->up = strcmp(what, "up") == 0;
  } else if (strcmp(what, "hw") == 0) {
    snprintf(interface->hwaddr, sizeof interface->hwaddr, "%s", last);
  } else if (strcmp(what, "netmask") == 0) {
    snprintf(interface->netmask, sizeof interface->netmask, "%s", last);
  } else {
    snprintf(interface->address, sizeof interface->address, "%s", what);
  }
}

int ethernet_ifconfig(int count, char** args) {
  struct interface interface;
  if (count < 2 || strcmp(args[1], "eth0") != 0 || !load(&interface)) {
    fprintf(stderr, "ifconfig: %s: error fetching interface information: Device not found\n",
            count > 1 ? args[1] : "");
    return 1;
  }
  if (count == 2) {
    list(&interface);
  } else {
    change(&interface, count, args);
  }
  store(&interface);
  return 0;
}
