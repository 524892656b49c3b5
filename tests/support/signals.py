"""The signals of the boards, as gpiolib info lists them after a start with all inputs low.

    dev.command("gpiolib info") == listing(TK20)
    lines(TK20)[74] == ("out", 1)
"""

from texts import FAILURE, SUCCESS

HEADING = ("num  dir lv signal name          description               source        pull part\n"
           "---- --- -- -------------------- ------------------------- ------------- ---- ----\n")

# Without the I/O option, and the rows that are there with it.
TK20 = """\
37   in  0  CP9                  SW1 for WPS               TK-10/J2-42   up   -   \n\
65   in  0  BARREL_UNDER_VOLT    Barrel under-voltage      TK-10/J2-43   up   -   \n\
66   in  0  TERMINAL_UNDER_VOLT  Terminal under-voltage    TK-10/J2-45   up   -   \n\
72   in  0  CP6                  Strap 1                   TK-10/J2-27   up   -   \n\
73   in  0  CP5                  Strap 0                   TK-10/J2-32   up   -   \n\
74   out 1  FAULT_LED            Fault LED                 TK-10/J2-37   up   -   \n\
77   out 0  DISABLE_SPI_CS       Disable spi flash         TK-10/J2-29   up   -   \n\
80   in  0  NRSTTODFLT           Reset to defaults         TK-10/J2-4    up   -   \n\
86   out 1  DTR2_232             Line 2 DTR                TK-10/J2-18   up   -   \n\
87   in  0  DCD1_232             Line 1 DSR/DCD            TK-10/J2-16   up   -   \n\
88   out 1  DTR1_232             Line 1 DTR                TK-10/J2-14   up   -   \n\
89   in  0  DCD2_232             Line 2 DSR/DCD            TK-10/J2-20   up   -   \n\
97   in  0  CP7                  Temperature Event         TK-10/J2-44   up   -   \n\
128  out 1  SEL_RS232_2          Line 2 rs232 select       I2C-0x69/P0   up   -   \n\
129  out 1  4W_B2                Line 2 4-wire select      I2C-0x69/P1   up   -   \n\
130  out 1  2W_B2                Line 2 2-wire select      I2C-0x69/P2   up   -   \n\
132  out 0  RX_TE2               Line 2 Rx Termination     I2C-0x69/P4   none -   \n\
133  out 0  TX_2W_TE2            Line 2 Tx Termination     I2C-0x69/P5   none -   \n\
134  in  0  NHOSTA_OC            USB Host A over-current   I2C-0x69/P6   none -   \n\
135  in  0  NHOSTB_OC            USB Host B over-current   I2C-0x69/P7   none -   \n\
136  out 1  SEL_RS232_1          Line 1 rs232 select       I2C-0x59/O8   none -   \n\
137  out 1  4W_B1                Line 1 4-wire select      I2C-0x59/O9   none -   \n\
138  out 1  2W_B1                Line 1 2-wire select      I2C-0x59/O10  none -   \n\
140  out 0  RX_TE1               Line 1 Rx Termination     I2C-0x59/O12  none -   \n\
141  out 0  TX_2W_TE1            Line 1 Tx Termination     I2C-0x59/O13  none -   \n\
142  out 0  HOSTB_EN             USB Host B enable         I2C-0x59/O14  none -   \n\
143  out 0  HOSTA_EN             USB Host A enable         I2C-0x59/O15  none -   \n\
144  out 0  HD_FD                Ethernet duplex LED       I2C-0x68/P0   none -   \n\
147  out 0  ULED1                USB Host A LED            I2C-0x68/P3   none -   \n\
148  out 0  ULED2                USB Host B LED            I2C-0x68/P4   none -   \n\
149  out 0  XLED1                Extra LED 1               I2C-0x68/P5   none -   \n\
150  out 0  XLED2                Extra LED 2               I2C-0x68/P6   none -   \n\
152  out 0  SIGPWR_LED7          WLAN RSSI LED 7           I2C-0x58/O8   none -   \n\
153  out 0  SIGPWR_LED6          WLAN RSSI LED 6           I2C-0x58/O9   none -   \n\
154  out 0  SIGPWR_LED5          WLAN RSSI LED 5           I2C-0x58/O10  none -   \n\
155  out 0  SIGPWR_LED4          WLAN RSSI LED 4           I2C-0x58/O11  none -   \n\
156  out 0  SIGPWR_LED3          WLAN RSSI LED 3           I2C-0x58/O12  none -   \n\
157  out 0  SIGPWR_LED2          WLAN RSSI LED 2           I2C-0x58/O13  none -   \n\
158  out 0  SIGPWR_LED1          WLAN RSSI LED 1           I2C-0x58/O14  none -   \n"""

_DIO2X1R = """\
64   in  0  EXT_IN1              External Input 1          TK-10/J2-39   up   -   \n\
67   in  0  EXT_IN2              External Input 2          TK-10/J2-41   up   -   \n\
139  out 1  EN_EXTWAKE           EXT_IN1 wake cpu enable   I2C-0x59/O11  none -   \n\
151  out 0  RELAY                Relay control             I2C-0x68/P7   none -   \n"""

TK10_MFG = """\
-1   in  -  NRESETIN             Test fixture SW2          TK-10/J1-2    none -   \n\
36   in  0  CP8                  Test fixture JP13.16      TK-10/J1-38   up   97  \n\
37   in  0  CP9                  Test fixture JP13.18      TK-10/J1-42   up   74  \n\
55   -   -  I2CSDA               Test fixture JP1.3        TK-10/J1-33   up   66  \n\
56   -   -  I2CSCL               Test fixture JP1.2        TK-10/J1-31   up   67  \n\
64   in  0  SPI1_MISO            Test fixture JP3.3        TK-10/J1-39   up   65  \n\
65   in  0  SPI1_MOSI            Test fixture JP3.5        TK-10/J1-43   up   64  \n\
66   in  0  SPI1_CLK             Test fixture JP3.6        TK-10/J1-45   up   55  \n\
67   in  0  NSPI1_CS             Test fixture JP3.4        TK-10/J1-41   up   56  \n\
70   -   -  TX2                  Test fixture JP11.2       TK-10/J1-24   up   71  \n\
71   -   -  RX2                  Test fixture JP11.4       TK-10/J1-28   up   70  \n\
72   in  0  CP6                  Test fixture JP13.12      TK-10/J1-27   up   86  \n\
73   in  0  CP5                  Test fixture JP13.10      TK-10/J1-32   up   87  \n\
74   in  0  NSPI1_IRQ            Test fixture JP3.2        TK-10/J1-37   up   37  \n\
77   in  0  DISABLE_SPI_CS       Test fixture SW1          TK-10/J1-29   up   -   \n\
80   in  0  NRSTTODFLT           Test fixture SW3          TK-10/J1-4    up   -   \n\
86   in  0  CP3                  Test fixture JP13.6       TK-10/J1-18   up   72  \n\
87   in  0  CP2                  Test fixture JP13.4       TK-10/J1-16   up   73  \n\
88   in  0  CP1                  Test fixture JP13.2       TK-10/J1-14   up   89  \n\
89   in  0  CP4                  Test fixture JP13.8       TK-10/J1-20   up   88  \n\
90   -   -  RTS1                 Test fixture JP10.6       TK-10/J1-8    up   91  \n\
91   -   -  CTS1                 Test fixture JP10.8       TK-10/J1-12   up   90  \n\
92   -   -  RTS2                 Test fixture JP11.6       TK-10/J1-26   up   93  \n\
93   -   -  CTS2                 Test fixture JP11.8       TK-10/J1-30   up   92  \n\
97   in  0  CP7                  Test fixture JP13.14      TK-10/J1-44   up   36  \n"""

TK20_DIO2X1R = "".join(sorted((TK20 + _DIO2X1R).splitlines(keepends=True), key=lambda row: int(row.split()[0])))

# The signals of each port's line driver in the order in which they are driven, and their levels in each mode with the
# flags that the kernel is asked for.
LINE_DRIVERS = {
    1: {"SEL_RS232": 136, "4W_B": 137, "2W_B": 138, "TX_2W_TE": 141, "RX_TE": 140},
    2: {"SEL_RS232": 128, "4W_B": 129, "2W_B": 130, "TX_2W_TE": 133, "RX_TE": 132},
}
RS232_LEVELS = (1, 1, 1, 0, 0)
BUS_MODES = [
    ("rs485", (0, 1, 0, 0, 0), 0x03),
    ("rs485 term", (0, 1, 0, 1, 0), 0x23),
    ("rs422", (0, 0, 1, 0, 0), 0x11),
    ("rs422 term", (0, 0, 1, 0, 1), 0x31),
]
# What a UART that refuses the request makes the shell say.
RS485_REFUSED = ("ERROR: ioctl(TIOCSRS485) on /dev/ttyS{port}\n"
                 "tty_set_termios: tty_configure_mode(): Inappropriate ioctl for device\n"
                 "tty_remap_stdio: tty_set_termios(): Inappropriate ioctl for device\n" + FAILURE + SUCCESS)


def driver_levels(dev, port):
    """What the line driver of this port gets, in the order of LINE_DRIVERS."""
    return tuple(dev.level(number) for number in LINE_DRIVERS[port].values())


def row_of(rows, name):
    """The row of one signal."""
    return next(line + "\n" for line in rows.splitlines() if f" {name} " in line)


def lines(rows):
    """{number: (direction, level)} of the signals that are plain GPIO: the lines that the shell takes."""
    columns = (row.split()[:3] for row in rows.splitlines())
    return {int(number): (direction, int(level)) for number, direction, level in columns if level != "-"}


def with_levels(rows, levels):
    """The same rows with other levels, by number."""
    return "".join(row if (number := int(row.split()[0])) not in levels else f"{row[:9]}{levels[number]}{row[10:]}"
                   for row in rows.splitlines(keepends=True))


def listing(rows):
    """What gpiolib info shows."""
    return "\n" + HEADING + rows + "\n"
