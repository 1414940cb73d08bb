# SPDX-License-Identifier: GPL-2.0-only
"""A picture of a soak: memory, descriptors, threads and calls over the time, one below the other, as SVG."""

WIDTH, LEFT, RIGHT = 960, 90, 20
PANEL, GAP, TOP = 120, 34, 50
PANELS = (("memory", "memory, MiB"), ("descriptors", "descriptors"), ("threads", "threads"),
          ("busy", "channels that are not READY"), ("rate", "calls a second"))


def text(x, y, words, anchor="start", size=12):
    return f'<text x="{x:.1f}" y="{y:.1f}" font-size="{size}" text-anchor="{anchor}">{words}</text>'


def panel(samples, key, title, top, seconds):
    """Axis from zero: what is flat looks flat."""
    most = max(each[key] for each in samples) * 1.1 or 1

    def place(each):
        x = LEFT + each["time"] / seconds * (WIDTH - LEFT - RIGHT)
        return f"{x:.1f},{top + PANEL - each[key] / most * PANEL:.1f}"

    yield f'<rect x="{LEFT}" y="{top}" width="{WIDTH - LEFT - RIGHT}" height="{PANEL}" fill="none" stroke="#999"/>'
    yield text(LEFT, top - 6, title)
    for part in (0, 0.5, 1):
        yield text(LEFT - 6, top + PANEL * (1 - part) + 4, f"{most * part:.4g}", "end")
    yield f'<polyline fill="none" stroke="#0060a0" points="{" ".join(place(each) for each in samples)}"/>'


def draw(samples, title):
    before = {"time": 0, "connected": 0}
    for each in samples:
        each["rate"] = (each["connected"] - before["connected"]) / max(each["time"] - before["time"], 0.001)
        before = each
    seconds = samples[-1]["time"]
    height = TOP + len(PANELS) * (PANEL + GAP)
    lines = [f'<svg xmlns="http://www.w3.org/2000/svg" width="{WIDTH}" height="{height}" font-family="sans-serif">',
             f'<rect width="{WIDTH}" height="{height}" fill="#fff"/>', text(LEFT, 22, title, size=15)]
    for number, (key, name) in enumerate(PANELS):
        lines += panel(samples, key, name, TOP + number * (PANEL + GAP), seconds)
    for part in range(7):
        x = LEFT + part / 6 * (WIDTH - LEFT - RIGHT)
        lines.append(text(x, height - 14, f"{seconds * part / 6:.0f} s", "middle"))
    return "\n".join([*lines, "</svg>", ""])
