"""Draws a session as a picture that is read on a light and on a dark background, and reads the text of pictures again."""

import html
import re

from comparison import plain

_COLUMNS, _CHARACTER, _LINE, _MARGIN, _TOP = 96, 8.0, 17, 16, 34
_STYLE = """<style>
svg{background:none}
.window{fill:#f7f7f4;stroke:#b9b9b2}.bar{fill:#e4e4de}.dot{fill:#b9b9b2}
text{font:13px ui-monospace,Menlo,Consolas,'DejaVu Sans Mono',monospace;fill:#24292f;white-space:pre}
.typed{font-weight:bold;fill:#0b57a4}.left{fill:#8a8a84}.good{fill:#1a7f37}.bad{fill:#b42318}
@media (prefers-color-scheme:dark){.window{fill:#16181c;stroke:#43474e}.bar{fill:#24272d}.dot{fill:#5a5f68}
text{fill:#d7dade}.typed{fill:#79b8ff}.left{fill:#7d838c}.good{fill:#56d364}.bad{fill:#ff8f85}}
</style>
"""
LEFT_OUT = "..."
_POWER = "^]"


def excerpt(steps, wanted):
    """
    The lines of a picture: of each command in `wanted`, (start of what was typed, expressions), its line and those of its
    output that match an expression; LEFT_OUT stands for the others. `steps` are a player's transcript, in whose order they stand.
    """
    lines, at = [], 0
    for start, expressions in wanted:
        while not (steps[at][1] or "").startswith(start):
            at += 1
        prompt, typed, shown = steps[at]
        at += 1
        lines.append((prompt, typed))
        for line in shown:
            if any(re.search(expression, line) for expression in expressions):
                lines.append(("", line))
            elif lines[-1] != ("", LEFT_OUT):
                lines.append(("", LEFT_OUT))
    return lines


def _row(number, prompt, text):
    y = _TOP + _LINE * (number + 1)
    shown = html.escape(text[:_COLUMNS])
    if prompt:
        return (f'<text x="{_MARGIN}" y="{y}" xml:space="preserve">{html.escape(prompt)}'
                f'<tspan class="typed">{shown}</tspan></text>\n')
    kind = ("left" if text in (LEFT_OUT, _POWER) else "good" if "SUCCESS" in text or "all whole" in text else
            "bad" if "ERROR" in text or " dirty " in text else "shown")
    return f'<text class="{kind}" x="{_MARGIN}" y="{y}" xml:space="preserve">{shown}</text>\n'


def session(lines, title):
    """The picture of these lines, [(prompt, text)], as an SVG."""
    width = 2 * _MARGIN + int(_COLUMNS * _CHARACTER)
    height = _TOP + _LINE * len(lines) + 2 * _MARGIN
    rows = "".join(_row(number, prompt, text) for number, (prompt, text) in enumerate(lines))
    dots = "".join(f'<circle class="dot" cx="{_MARGIN + 4 + 18 * number}" cy="15" r="5"/>' for number in range(3))
    size = f'viewBox="0 0 {width} {height}" width="{width}" height="{height}"'
    return (f'<svg xmlns="http://www.w3.org/2000/svg" {size} role="img">\n'
            f"<title>{html.escape(title)}</title>\n{_STYLE}"
            f'<rect class="window" x=".5" y=".5" width="{width - 1}" height="{height - 1}" rx="8"/>\n'
            f'<path class="bar" d="M1 30V9a8 8 0 0 1 8-8H{width - 9}a8 8 0 0 1 8 8V30z"/>{dots}\n{rows}</svg>\n')


def text_of(picture):
    """What a picture says, text by text, without what differs from run to run."""
    said = re.findall(r"<(?:text|title)\b[^>]*>(.*?)</(?:text|title)>", picture, re.DOTALL)
    return [plain(html.unescape(re.sub(r"<[^>]*>", "", text))) for text in said]
