"""What the benchmarks' scripts share: medians with quartiles, the JSON list, and pictures."""
import html
import json
import pathlib
import statistics


def quartiles(values):
    if len(values) < 2:
        return [values[0]] * 3
    return statistics.quantiles(values, n=4, method="inclusive")


def spread(values, scale=1.0, digits=2):
    """Median and quartiles as text."""
    low, middle, high = quartiles(values)
    return (f"{middle / scale:,.{digits}f} ({low / scale:,.{digits}f} to "
            f"{high / scale:,.{digits}f})")


def add_options(parser):
    parser.add_argument("--json", help="write every figure into this file, a list of objects")
    parser.add_argument("--extend", action="store_true", help="add to the list that it holds")
    parser.add_argument("--pictures", type=pathlib.Path, help="draw into this folder")


def entry(name, batch, payload, ratios, void=False, **more):
    low, middle, high = quartiles(ratios)
    return {"name": name, "batch": batch, "payload": payload, "ratio": middle,
            "quartiles": [low, middle, high], "void": void, **more}


def save(arguments, objects):
    if arguments.json:
        path = pathlib.Path(arguments.json)
        earlier = json.loads(path.read_text(encoding="utf-8")) if arguments.extend else []
        path.write_text(json.dumps([*earlier, *objects], indent=2) + "\n", encoding="utf-8")


def picture(path, title, axis, rows, mark=1.0):
    """Draws rows of (label, [low, middle, high], void) as points with whiskers on one scale, with a
    line at `mark`; void ones hollow."""
    left, right, line = 270, 660, 22
    top, height = 58, 58 + 22 * len(rows) + 44
    values = [value for _, quartile, _ in rows for value in quartile] + [mark]
    low, high = min(values), max(values)
    margin = (high - low or 1) * 0.06
    low, high = low - margin, high + margin

    def x(value):
        return left + (value - low) / (high - low) * (right - left)

    def text(at, y, words, anchor="start", more=""):
        return (f'<text x="{at:.1f}" y="{y:.1f}" text-anchor="{anchor}"{more}>'
                f'{html.escape(words)}</text>')

    parts = [f'<svg xmlns="http://www.w3.org/2000/svg" width="720" height="{height}" '
             'font-family="sans-serif" font-size="13" fill="#222">',
             f'<rect width="720" height="{height}" fill="#fff"/>',
             text(16, 26, title, more=' font-size="16" font-weight="bold"')]
    bottom = top + line * len(rows)
    step = next(digit * 10.0 ** power for power in range(-3, 9) for digit in (1, 2, 5)
                if (high - low) / (digit * 10.0 ** power) <= 8)
    tick = -(-low // step) * step
    while tick <= high:
        parts.append(f'<path d="M{x(tick):.1f} {top - 8}V{bottom}" stroke="#ddd"/>')
        parts.append(text(x(tick), bottom + 16, f"{tick:,.3f}".rstrip("0").rstrip("."), "middle"))
        tick += step
    parts.append(f'<path d="M{x(mark):.1f} {top - 8}V{bottom}" stroke="#888" stroke-width="2"/>')
    parts.append(text((left + right) / 2, bottom + 36, axis, "middle"))
    for number, (label, (first, middle, last), void) in enumerate(rows):
        y = top + line * number + 6
        parts.append(text(left - 14, y + 4, label, "end"))
        parts.append(f'<path d="M{x(first):.1f} {y}H{x(last):.1f}" stroke="#06c" '
                     'stroke-width="2"/>')
        parts.append(f'<circle cx="{x(middle):.1f}" cy="{y}" r="4.5" stroke="#06c" '
                     f'stroke-width="2" fill="{"#fff" if void else "#06c"}"/>')
    parts.append("</svg>\n")
    path.parent.mkdir(parents=True, exist_ok=True)
    path.write_text("\n".join(parts), encoding="utf-8")
