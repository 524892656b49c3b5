"""gpiolib info and gpiolib set, and what start-up does to the lines of each board."""

import pytest

from board import PRODUCT_ID, give_board, give_product, gpio_writes, level, make_gpio_lines, set_level

SUCCESS = "Done: SUCCESS\n"
FAILURE = "Done: FAILURE\n"
INCOMPLETE = "ERROR: Incomplete command\n"
HEADING = ("num  dir lv signal name          description               source        pull part\n"
           "---- --- -- -------------------- ------------------------- ------------- ---- ----\n")

# As listed after a start without the I/O option: outputs at their defaults, all inputs low.
TK20_ROWS = """\
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

TK10_MFG_ROWS = """\
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


def row_of(rows, name):
    return next(line + "\n" for line in rows.splitlines() if f" {name} " in line)


@pytest.fixture
def tk20(dev):
    give_board(dev, "P2")
    dev.boot()
    return dev


# ---------------------------------------------------------------------- start-up


def start_of_line(row):
    """What start-up writes for a listed line."""
    number, direction, default = row.split()[:3]
    if direction == "-" or number == "-1":
        return []
    drive = [f"gpio{number}/direction out", f"gpio{number}/value {default}"] if direction == "out" else []
    return [f"export {number}", *drive]


@pytest.mark.parametrize("product_id, rows", [("P2", TK20_ROWS), ("P7", TK10_MFG_ROWS), ("P1", ""), ("XX", "")])
def test_start_takes_and_drives_exactly_the_lines_of_the_board(dev, product_id, rows):
    give_board(dev, product_id)
    assert "ERROR" not in dev.boot()
    given_back = [f"unexport {number}" for number in range(32, 160)]
    taken = [write for row in rows.splitlines() for write in start_of_line(row)]
    assert gpio_writes(dev.startup) == given_back + taken


def test_failures_are_told_and_the_start_goes_on(dev):
    give_board(dev, "P2")
    for name in ("gpio74/direction", "gpio77/value"):
        dev.remove(f"/sys/class/gpio/{name}")
    dev.fail_call("write", "gpio86/value", error=None, result=1)
    dev.fail_call("write", "/export", after=30, times=1)
    text = dev.boot()
    assert [line for line in text.splitlines() if line.startswith("ERROR")] == [
        "ERROR: Failed open to set gpio74 (FAULT_LED) direction to 'out'",
        "ERROR: Failed open to set gpio77 (DISABLE_SPI_CS) value to '0'",
        "ERROR: Failed write to set gpio86 (DTR2_232) value to '1'",
        "ERROR: Failed write to export gpio149 (XLED1)"]
    tried = [event.path for event in dev.startup.of("write")]
    assert not [path for path in tried if "gpio74/" in path or "gpio149/" in path], "a failed step ends it"
    assert "/sys/class/gpio/gpio150/value" in tried, "the others are driven"


def test_kernel_without_lines(dev):
    """Every line that would be taken is told; those of the I/O option are not missed."""
    give_product(dev, (PRODUCT_ID, b"P2"))
    text = dev.boot()
    lines = [row.split() for row in TK20_ROWS.splitlines()]
    assert [line for line in text.splitlines() if line.startswith("ERROR")] == [
        f"ERROR: Failed open to export gpio{line[0]} ({line[3]})" for line in lines]


def test_line_that_cannot_be_given_back_is_told_from_verbosity_6_on(dev):
    make_gpio_lines(dev, (40, 41, 160))
    dev.boot()
    dev.fail_call("write", "/sys/class/gpio/unexport", error="EINVAL", after=1, times=3)
    dev.command("verbose 5")
    assert dev.command("set opmode board tk40") == SUCCESS
    dev.command("verbose 6")
    assert dev.command("set opmode board tk40") == "".join(
        f"ERROR: Failed write to unexport gpio{number}\n" for number in (40, 41)) + SUCCESS
    dev.remove("/sys/class/gpio/unexport")
    assert dev.command("set opmode io none") == "".join(
        f"ERROR: Failed open to unexport gpio{number}\n" for number in (40, 41)) + SUCCESS


# ---------------------------------------------------------------------- gpiolib info


def test_info_of_the_tk20(tk20):
    assert tk20.command("gpiolib info") == "\n" + HEADING + TK20_ROWS + "\n"


def test_info_with_the_io_option(dev):
    give_board(dev, "P2", "dio2x1r")
    dev.boot()
    listing = dev.command("gpiolib info")
    extra = ["64   in  0  EXT_IN1              External Input 1          TK-10/J2-39   up   -   \n",
             "67   in  0  EXT_IN2              External Input 2          TK-10/J2-41   up   -   \n",
             "139  out 1  EN_EXTWAKE           EXT_IN1 wake cpu enable   I2C-0x59/O11  none -   \n",
             "151  out 0  RELAY                Relay control             I2C-0x68/P7   none -   \n"]
    rows = sorted(TK20_ROWS.splitlines(keepends=True) + extra, key=lambda row: int(row.split()[0]))
    assert listing == "\n" + HEADING + "".join(rows) + "\n"


def test_info_of_the_tk10_mfg(dev):
    give_board(dev, "P7")
    dev.boot()
    assert dev.command("gpiolib info") == "\n" + HEADING + TK10_MFG_ROWS + "\n"


@pytest.mark.parametrize("product_id", ["P1", "P3", "P8", "XX"])
def test_info_of_a_board_without_table(dev, product_id):
    give_board(dev, product_id)
    dev.boot()
    assert dev.command("gpiolib info") == "\n" + HEADING + "\n"


@pytest.mark.parametrize("signal", ["FAULT_LED", "74"])
def test_info_of_one_signal(tk20, signal):
    assert tk20.command(f"gpiolib info {signal}") == "\n" + HEADING + row_of(TK20_ROWS, "FAULT_LED") + "\n"


def test_info_shows_the_level_of_an_input(tk20):
    set_level(tk20, 37, "1")
    expected = row_of(TK20_ROWS, "CP9").replace("in  0", "in  1")
    assert tk20.command("gpiolib info CP9") == "\n" + HEADING + expected + "\n"


@pytest.mark.parametrize("content, error", [
    (b"", "ERROR: Failed reading gpio37 (CP9) value\n"), (b"x\n", ""), (None, "ERROR: Failed open to read gpio37 (CP9) value\n")])
def test_info_of_a_level_that_cannot_be_read(tk20, content, error):
    value = tk20.path("/sys/class/gpio/gpio37/value")
    value.unlink() if content is None else value.write_bytes(content)
    expected = row_of(TK20_ROWS, "CP9").replace("in  0", "in  -")
    assert tk20.command("gpiolib info CP9") == "\n" + HEADING + error + expected + "\n"


@pytest.mark.parametrize("signal", ["20", "31", "160", "75", "fault_led", "NOPE", "RELAY", "151"])
def test_info_of_a_signal_that_is_not_there(tk20, signal):
    assert tk20.command(f"gpiolib info {signal}") == f"\nERROR: Invalid number or name '{signal}'\n\n"


# ---------------------------------------------------------------------- gpiolib set


@pytest.mark.parametrize("word, value", [("high", "1"), ("1", "1"), ("low", "0"), ("0", "0")])
@pytest.mark.parametrize("signal", ["FAULT_LED", "74"])
def test_set_drives_the_line(tk20, signal, word, value):
    tk20.mark()
    assert tk20.command(f"gpiolib set {signal} {word}") == SUCCESS
    assert gpio_writes(tk20.events) == [f"gpio74/value {value}"]
    assert level(tk20, 74) == value
    assert f"74   out {value}  " in tk20.command("gpiolib info 74")


@pytest.mark.parametrize("words, error", [
    ("20 1", "Invalid number or name '20'"),
    ("NOPE 1", "Invalid number or name 'NOPE'"),
    ("RELAY 1", "Invalid number or name 'RELAY'"),
    ("NOPE up", "Invalid number or name 'NOPE'"),
    ("FAULT_LED up", "Invalid state 'up'"),
    ("FAULT_LED HIGH", "Invalid state 'HIGH'"),
    ("FAULT_LED 2", "Invalid state '2'"),
    ("CP9 up", "Invalid state 'up'"),
    ("CP9 1", "gpio37 (CP9) is not an output"),
    ("37 low", "gpio37 (CP9) is not an output"),
])
def test_set_refuses(tk20, words, error):
    tk20.mark()
    assert tk20.command(f"gpiolib set {words}") == f"ERROR: {error}\n" + FAILURE
    assert gpio_writes(tk20.events) == []


def test_set_of_a_pin_with_a_peripheral_is_refused(dev):
    give_board(dev, "P7")
    dev.boot()
    assert dev.command("gpiolib set TX2 1") == "ERROR: gpio70 (TX2) is not an output\n" + FAILURE
    assert dev.command("gpiolib set NRESETIN 1") == "ERROR: gpio-1 (NRESETIN) is not an output\n" + FAILURE
    assert dev.ioctls == []


def test_set_with_the_io_option(dev):
    give_board(dev, "P2", "dio2x1r")
    dev.boot()
    assert dev.command("gpiolib set RELAY 1") == SUCCESS
    assert level(dev, 151) == "1"


@pytest.mark.parametrize("words", ["", "FAULT_LED", "NOPE"])
def test_set_needs_both_words(tk20, words):
    assert tk20.command(f"gpiolib set {words}".rstrip()) == INCOMPLETE


def test_set_fails_where_the_kernel_does(tk20):
    tk20.remove("/sys/class/gpio/gpio74/value")
    assert tk20.command("gpiolib set FAULT_LED 1") == (
        "ERROR: Failed open to set gpio74 (FAULT_LED) value to '1'\n" + FAILURE)
    tk20.fail_call("write", "gpio143/value", error=None, result=1)
    assert tk20.command("gpiolib set HOSTA_EN 1") == (
        "ERROR: Failed write to set gpio143 (HOSTA_EN) value to '1'\n" + FAILURE)


def test_before_a_table_nothing_can_be_set(dev):
    make_gpio_lines(dev)
    dev.boot()
    assert dev.command("gpiolib set FAULT_LED 1") == "ERROR: Invalid number or name 'FAULT_LED'\n" + FAILURE
