#!/usr/bin/env python3
"""Draws the access guide pictures fullaccess_<language>_<12|13>.svg.

"_13" shows enabling the helper's socket unit where systemd runs, "_12" starting the helper by hand
where it does not. Captions come from the table below; commands are the same in every language.
Qt renders these with its SVG Tiny reader, so only plain shapes and text are used.
"""

import argparse
import os
import sys
from xml.sax.saxutils import escape

WIDTH, HEIGHT = 480, 300

CAPTIONS = {
    "en": {
        "open": "Open a terminal.",
        "enable": "Enable the helper service (once):",
        "check": "Check that it is active:",
        "start": "Start the helper as administrator:",
        "answer": "Check that it answers:",
        "retry": "Go back to Vantrelo and mount the disk again.",
        "automatic": "From now on the helper starts by itself when needed.",
        "again": "Repeat step 2 after every restart.",
    },
    "zh": {
        "open": "打开终端。",
        "enable": "启用助手服务（只需一次）：",
        "check": "确认服务已启用：",
        "start": "以管理员身份启动助手：",
        "answer": "确认助手有响应：",
        "retry": "回到 Vantrelo，重新挂载磁盘。",
        "automatic": "此后，助手会在需要时自动启动。",
        "again": "每次重新启动电脑后，请重复第 2 步。",
    },
    "ja": {
        "open": "ターミナルを開きます。",
        "enable": "ヘルパーサービスを有効にします（初回のみ）：",
        "check": "有効になったことを確認します：",
        "start": "管理者としてヘルパーを起動します：",
        "answer": "ヘルパーが応答することを確認します：",
        "retry": "Vantrelo に戻り、ディスクをもう一度マウントします。",
        "automatic": "以後、ヘルパーは必要なときに自動で起動します。",
        "again": "再起動するたびに手順 2 を繰り返してください。",
    },
    "fr": {
        "open": "Ouvrez un terminal.",
        "enable": "Activez le service d’assistance (une fois) :",
        "check": "Vérifiez qu’il est actif :",
        "start": "Démarrez l’assistant en administrateur :",
        "answer": "Vérifiez qu’il répond :",
        "retry": "Revenez dans Vantrelo et remontez le disque.",
        "automatic": "L’assistant démarrera ensuite tout seul au besoin.",
        "again": "Répétez l’étape 2 après chaque redémarrage.",
    },
    "de": {
        "open": "Öffnen Sie ein Terminal.",
        "enable": "Aktivieren Sie den Helper-Dienst (einmalig):",
        "check": "Prüfen Sie, ob er aktiv ist:",
        "start": "Starten Sie den Helper als Administrator:",
        "answer": "Prüfen Sie, ob er antwortet:",
        "retry": "Binden Sie den Datenträger in Vantrelo neu ein.",
        "automatic": "Danach startet der Helper bei Bedarf von selbst.",
        "again": "Wiederholen Sie Schritt 2 nach jedem Neustart.",
    },
}

# Qt's SVG reader takes one family name, not a list: an unknown name or a list falls back to the
# default face, which is proportional, so each text names the one face it is drawn for. CJK captions
# use a CJK face so Qt does not pick Latin-only glyph shapes for them.
CJK_FONTS = {"zh": "WenQuanYi Micro Hei", "ja": "WenQuanYi Micro Hei"}
LATIN_FONT = "DejaVu Sans"
MONO_FONT = "DejaVu Sans Mono"
MONO_ADVANCE = 0.602  # DejaVu Sans Mono's advance, in em

TEAL_DARK = "#1a9b8c"
TEAL = "#2fb6b3"
INK = "#2e3436"
MUTED = "#5e5c64"

MARGIN_X = 28  # centre of the step badges
TEXT_X = 50
BOX_RIGHT = WIDTH - 16
BOX_PAD = 10
CAPTION_SIZE = 13.5
CAPTION_HEIGHT = 22
LINE_HEIGHT = 17
BOX_GAP = 4
STEP_GAP = 12


def steps(generation, helper, socket, version):
    """(caption key, terminal lines) per step, then the footnote key. A line is (kind, text)."""
    if generation == "13":
        unit = "vantrelo-helper.socket"
        return [
            ("open", []),
            ("enable", [("command", f"sudo systemctl enable --now {unit}")]),
            ("check", [("command", f"systemctl is-active {unit}"), ("good", "active")]),
            ("retry", []),
        ], "automatic"
    return [
        ("open", []),
        ("start", [("command", f"sock={socket}"),
                   ("command", f'sudo -b {helper} --socket "$sock"')]),
        ("answer", [("command", "vantreloctl helper-version"), ("good", version)]),
        ("retry", []),
    ], "again"


def mono_size(lines):
    """The largest monospace size, in half points up to 11.5, at which every line fits its box."""
    longest = max(len(text) + (2 if kind == "command" else 0) for kind, text in lines)
    room = BOX_RIGHT - TEXT_X - 2 * BOX_PAD
    size = min(11.5, room / (MONO_ADVANCE * longest))
    return int(size * 2) / 2


def text(x, y, content, size, fill, family, weight=None, anchor=None):
    extra = ""
    if weight:
        extra += f' font-weight="{weight}"'
    if anchor:
        extra += f' text-anchor="{anchor}"'
    return (f'<text x="{x:g}" y="{y:g}" font-family="{family}" font-size="{size:g}" '
            f'fill="{fill}"{extra}>{escape(content)}</text>')


def terminal(top, lines, size):
    height = len(lines) * LINE_HEIGHT + 2 * BOX_PAD - 4
    parts = [
        f'<rect x="{TEXT_X}" y="{top}" width="{BOX_RIGHT - TEXT_X}" height="{height}" rx="5" '
        f'fill="#232627"/>',
        f'<rect x="{TEXT_X + 5}" y="{top}" width="{BOX_RIGHT - TEXT_X - 10}" height="1" '
        f'fill="#ffffff" fill-opacity="0.12"/>',
    ]
    baseline = top + BOX_PAD + LINE_HEIGHT - 6
    prompt_width = 2 * MONO_ADVANCE * size
    for kind, content in lines:
        x = TEXT_X + BOX_PAD
        if kind == "command":
            parts.append(text(x, baseline, "$", size, TEAL, MONO_FONT, "bold"))
            parts.append(text(x + prompt_width, baseline, content, size, "#eff0f1", MONO_FONT))
        else:
            parts.append(text(x, baseline, content, size, "#8fe3a5", MONO_FONT))
        baseline += LINE_HEIGHT
    return parts, height


def badge(cy, label):
    return [
        f'<circle cx="{MARGIN_X}" cy="{cy}" r="10" fill="{TEAL_DARK}"/>',
        text(MARGIN_X, cy + 4.5, label, 12.5, "#ffffff", LATIN_FONT, "bold", "middle"),
    ]


def info_mark(cy):
    return [
        f'<circle cx="{MARGIN_X}" cy="{cy}" r="7.5" fill="none" stroke="{MUTED}" '
        f'stroke-width="1.5"/>',
        f'<rect x="{MARGIN_X - 0.75}" y="{cy - 1}" width="1.5" height="5" fill="{MUTED}"/>',
        f'<rect x="{MARGIN_X - 0.75}" y="{cy - 4.5}" width="1.5" height="1.75" fill="{MUTED}"/>',
    ]


def content_height(step_list):
    height = 0
    for _, lines in step_list:
        height += CAPTION_HEIGHT
        if lines:
            height += BOX_GAP + len(lines) * LINE_HEIGHT + 2 * BOX_PAD - 4
        height += STEP_GAP
    return height + CAPTION_HEIGHT


def picture(language, generation, helper, socket, version):
    captions = CAPTIONS[language]
    family = CJK_FONTS.get(language, LATIN_FONT)
    step_list, footnote = steps(generation, helper, socket, version)
    size = mono_size([line for _, lines in step_list for line in lines])
    top = (HEIGHT - content_height(step_list)) // 2

    body, badges, centres = [], [], []
    for number, (key, lines) in enumerate(step_list, start=1):
        centre = top + CAPTION_HEIGHT // 2
        centres.append(centre)
        badges += badge(centre, str(number))
        body.append(text(TEXT_X, centre + 5, captions[key], CAPTION_SIZE, INK, family))
        top += CAPTION_HEIGHT
        if lines:
            parts, height = terminal(top + BOX_GAP, lines, size)
            body += parts
            top += BOX_GAP + height
        top += STEP_GAP
    centre = top + CAPTION_HEIGHT // 2
    body += info_mark(centre)
    body.append(text(TEXT_X, centre + 4.5, captions[footnote], 12.5, MUTED, family))

    rail = (f'<rect x="{MARGIN_X - 1}" y="{centres[0]}" width="2" '
            f'height="{centres[-1] - centres[0]}" fill="#d3d7d8"/>')
    card = (f'<rect x="0.5" y="0.5" width="{WIDTH - 1}" height="{HEIGHT - 1}" rx="8" '
            f'fill="#fafafa" stroke="#d6d6d6"/>')
    return "\n".join([
        f'<svg xmlns="http://www.w3.org/2000/svg" version="1.2" baseProfile="tiny" '
        f'width="{WIDTH}" height="{HEIGHT}" viewBox="0 0 {WIDTH} {HEIGHT}">',
        card, rail, *badges, *body, "</svg>", ""])


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--out", required=True)
    parser.add_argument("--helper", required=True, help="the installed helper program")
    parser.add_argument("--socket", required=True, help="the socket the helper listens on")
    parser.add_argument("--version", required=True, help="the version the helper reports")
    parser.add_argument("languages", nargs="+")
    arguments = parser.parse_args()
    unknown = [language for language in arguments.languages if language not in CAPTIONS]
    if unknown:
        sys.exit(f"no captions for {', '.join(unknown)}")
    os.makedirs(arguments.out, exist_ok=True)
    for language in arguments.languages:
        for generation in ("12", "13"):
            path = os.path.join(arguments.out, f"fullaccess_{language}_{generation}.svg")
            with open(path, "w", encoding="utf-8") as out:
                out.write(picture(language, generation, arguments.helper, arguments.socket,
                                  arguments.version))


if __name__ == "__main__":
    main()
