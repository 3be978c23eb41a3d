# SPDX-License-Identifier: Apache-2.0
"""Pieces of the report: HTML and SVG without any outside file, from Python's own library alone."""
import base64
import html
import mimetypes
import struct

STYLE = """
:root { color-scheme: light dark; --ink: #1d2733; --soft: #566473; --line: #dde3ea; --card: #fff; --paper: #f4f6f9;
  --bar: #9db4cc; --red: #c2403a; --note: #fdf6e3; --edge: #d8a021 }
@media (prefers-color-scheme: dark) { :root { --ink: #e4e9ef; --soft: #9aa8b7; --line: #34404d; --card: #1b232c; --paper: #12181f;
  --bar: #52697f; --red: #e0685f; --note: #2c2715 } }
* { box-sizing: border-box }
body { margin: 0; background: var(--paper); color: var(--ink); font: 16px/1.5 system-ui, "Segoe UI", sans-serif }
header, main, footer { max-width: 1120px; margin: 0 auto; padding: 0 clamp(12px, 3vw, 24px) }
header { padding-top: 36px } h1 { margin: 0; font-size: 32px } header p { max-width: 760px; color: var(--soft) }
section { background: var(--card); border: 1px solid var(--line); border-radius: 10px; padding: 20px clamp(12px, 3vw, 24px); margin: 22px 0 }
h2 { margin: 0 0 4px; font-size: 21px } section > p { margin: 0 0 12px; max-width: 800px; color: var(--soft) }
.row { display: flex; flex-wrap: wrap; gap: 16px; align-items: flex-start } figure { margin: 0; max-width: 100% }
figure img { display: block; border-radius: 6px; max-width: 100%; height: auto } figcaption { font-size: 13px; color: var(--soft) }
.row img { width: auto; max-height: var(--tall) } .scroll { overflow-x: auto }
pre { font: 13px ui-monospace, monospace; background: var(--paper); padding: 10px 14px; border-radius: 6px; overflow-x: auto; margin: 0 0 12px }
table { border-collapse: collapse; font-size: 14px } th, td { text-align: left; padding: 4px 12px 4px 0; border-bottom: 1px solid var(--line) }
td.number, th.number { text-align: right; font-variant-numeric: tabular-nums }
.note { border-left: 4px solid var(--edge); background: var(--note); padding: 8px 14px; color: var(--ink) }
.matrix td { padding: 0; border: 1px solid var(--card); min-width: 46px; height: 40px; text-align: center; font-size: 12px }
.matrix img { width: 44px; height: 44px; display: block } .matrix td:first-child { position: sticky; left: 0; background: var(--card) }
.player { max-width: 640px } .player img { width: 100%; height: auto } .player input { width: 100% }
"""


def text(value):
    return html.escape(str(value))


def data_uri(data, kind):
    return f"data:{kind};base64," + base64.b64encode(data).decode()


def file_uri(path):
    with open(path, "rb") as file:
        return data_uri(file.read(), mimetypes.guess_type(str(path))[0])


def figure(picture, caption):
    """`picture`: the bytes of a PNG file."""
    return f'<figure><img src="{data_uri(picture, "image/png")}" alt="{text(caption)}"><figcaption>{text(caption)}</figcaption></figure>'


def row(figures, height):
    """Side by side, each at most so high; they keep their shape where the window is narrow."""
    return f'<div class="row" style="--tall:{height}px">' + "".join(figures) + "</div>"


def table(head, rows, numbers=()):
    def cells(tag, values):
        return "".join(f'<{tag}{" class=number" if i in numbers else ""}>{value}</{tag}>' for i, value in enumerate(values))
    return ('<div class="scroll"><table><tr>' + cells("th", [text(h) for h in head]) + "</tr>" +
            "".join("<tr>" + cells("td", values) + "</tr>" for values in rows) + "</table></div>")


def section(title, words, commands, content):
    """`commands`: lines to paste into a shell; none: an empty list."""
    how = "<pre>" + text("\n".join(commands)) + "</pre>" if commands else ""
    return f"<section><h2>{text(title)}</h2><p>{words}</p>{how}{content}</section>"


def bars(values, limit, labels, marked, line=None, height=120, caption=""):
    """A bar for each value from 0 to `limit`, red where `marked`; `line`: a threshold."""
    wide, gap = max(6, min(46, 900 // max(1, len(values)))), 2
    width, parts = len(values) * (wide + gap), []
    for i, value in enumerate(values):
        high = max(1, min(value, limit) / limit * height)
        parts.append(f'<rect x="{i * (wide + gap)}" y="{height - high:.1f}" width="{wide}" height="{high:.1f}" '
                     f'fill="{"var(--red)" if marked[i] else "var(--bar)"}"><title>{text(labels[i])}</title></rect>')
    if line is not None:
        y = height - line / limit * height
        parts.append(f'<line x1="0" x2="{width}" y1="{y:.1f}" y2="{y:.1f}" stroke="var(--ink)" stroke-dasharray="4 4"/>')
    every = max(1, len(values) // 12)
    for i in range(0, len(values), every):
        parts.append(f'<text x="{i * (wide + gap)}" y="{height + 16}" font-size="11" fill="var(--soft)">{text(labels[i].split(":")[0])}</text>')
    return (f'<figure><svg viewBox="0 0 {width} {height + 22}" width="{width}" style="max-width:100%">{"".join(parts)}</svg>'
            f"<figcaption>{text(caption)}</figcaption></figure>")


def matrix(pictures, values):
    """How alike each picture is to each: the more, the darker."""
    head = "<tr><td></td>" + "".join(f'<td><img src="{file_uri(p)}" alt=""></td>' for p in pictures) + "</tr>"
    rows = []
    for picture, line in zip(pictures, values):
        cells = "".join(f'<td style="background:hsl(210 60% {96 - 56 * max(0.0, v):.0f}%);color:{"#fff" if v > 0.6 else "#1d2733"}">'
                        f"{v:.2f}</td>" for v in line)
        rows.append(f'<tr><td><img src="{file_uri(picture)}" alt=""></td>{cells}</tr>')
    return '<div class="scroll"><table class="matrix">' + head + "".join(rows) + "</table></div>"


def jpeg_frames(path):
    """The frames of a motion JPEG video: its AVI chunks named 00dc, in order."""
    with open(path, "rb") as file:
        data = file.read()
    frames, at = [], data.find(b"movi") + 4
    while at + 8 <= len(data):
        name, size = data[at:at + 4], struct.unpack("<I", data[at + 4:at + 8])[0]
        if name == b"00dc" and size > 0:
            frames.append(data[at + 8:at + 8 + size])
        elif name == b"LIST" or name == b"RIFF":
            size = 4  # its chunks follow
        elif name == b"idx1":
            break
        at += 8 + size + size % 2
    return frames


def player(frames, seconds_a_frame, name):
    """Frames that play, and a slider to stop at one of them."""
    sources = ",".join('"' + data_uri(frame, "image/jpeg") + '"' for frame in frames)
    return f"""<div class="player"><img id="{name}" alt="frames of the video"><input id="{name}_at" type="range" min="0" max="{len(frames) - 1}" value="0">
<figcaption>Plays; move the slider to stop at a frame.</figcaption></div>
<script>(() => {{ const frames = [{sources}], image = document.getElementById("{name}"), at = document.getElementById("{name}_at");
const show = i => {{ image.src = frames[i]; at.value = i; }};
let i = 0, playing = setInterval(() => show(i = (i + 1) % frames.length), {seconds_a_frame * 1000:.0f});
at.oninput = () => {{ clearInterval(playing); show(at.value | 0); }}; show(0); }})();</script>"""


def page(title, words, parts):
    return (f'<!DOCTYPE html><html lang="en"><head><meta charset="utf-8"><meta name="viewport" content="width=device-width, initial-scale=1">'
            f"<title>{text(title)}</title><style>{STYLE}</style></head><body><header><h1>{text(title)}</h1>{words}</header>"
            f"<main>{''.join(parts)}</main></body></html>\n")
