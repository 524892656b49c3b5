/*
 * RS-485 on the serial ports. The stock driver refuses it on an emulated UART; with the parameter rs485=1 it is taken.
 * There is no transceiver to switch: the bytes go the same way. The file "rs485" in debugfs reads as the flags that the
 * kernel keeps for each port: "ttyS1 0x23".
 */
#include <linux/debugfs.h>
#include <linux/module.h>
#include <linux/seq_file.h>
#include <linux/serial_8250.h>
#include "vboard.h"

/* Exported by the stock driver, declared in none of its public headers. */
struct uart_8250_port *serial8250_get_port(int line);

#define SERIAL_PORTS 3

static bool rs485;
module_param(rs485, bool, 0444);
MODULE_PARM_DESC(rs485, "the serial ports take requests for RS-485");

static int take_settings(struct uart_port *port, struct ktermios *termios, struct serial_rs485 *settings)
{
    return 0;
}

static int rs485_show(struct seq_file *out, void *unused)
{
    int line;

    for (line = 0; line < SERIAL_PORTS; line++)
        seq_printf(out, "ttyS%d 0x%02x\n", line, serial8250_get_port(line)->port.rs485.flags);
    return 0;
}
DEFINE_SHOW_ATTRIBUTE(rs485);

int rs485_init(void)
{
    int line;

    debugfs_create_file("rs485", 0400, vboard_debugfs, NULL, &rs485_fops);
    for (line = 0; rs485 && line < SERIAL_PORTS; line++) {
        struct uart_port *port = &serial8250_get_port(line)->port;

        port->rs485_supported.flags = SER_RS485_ENABLED | SER_RS485_RTS_ON_SEND | SER_RS485_RTS_AFTER_SEND |
                                      SER_RS485_RX_DURING_TX | SER_RS485_TERMINATE_BUS;
        port->rs485_config = take_settings;
    }
    return 0;
}
