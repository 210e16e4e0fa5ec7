#!/usr/bin/env python3
"""Draws docs/architecture.svg: the folders of src/, lowest at the bottom.

    docs/architecture.py > docs/architecture.svg
"""
ROWS = [  # from top to bottom: (name, what it is for), side by side
    [("ui", "FLTK front end, one view per dialog"), ("cli", "tallowinctl, console front end")],
    [("app", "start-up, session, main window model")],
    [("ops", "flows and dialog models: create, delete, format")],
    [("boot", "boot records of what moves")],
    [("fat", "FAT volumes, format")],
    [("ptable", "partition model and alignment; rooms for MBR, GPT and EMBR")],
    [("probe", "what content and types are"), ("move", "moving data"), ("wipe", "overwriting data")],
    [("disk", "DiskDevice, discovery, mount check")],
    [("settings", "options, drive settings"), ("files", "host files, INI, images")],
    [("base", "bytes, failures, jobs, text, geometry, Host")],
]
WIDTH, HEIGHT, GAP, MARGIN = 760, 54, 18, 16

print(f'<svg xmlns="http://www.w3.org/2000/svg" width="{WIDTH}" '
      f'height="{len(ROWS) * (HEIGHT + GAP) + 2 * MARGIN - GAP}" font-family="sans-serif">')
print('<defs><marker id="tip" markerWidth="8" markerHeight="8" refX="6" refY="4" orient="auto">'
      '<path d="M0,0 L8,4 L0,8 z" fill="#456"/></marker></defs>')
for number, row in enumerate(ROWS):
    y = MARGIN + number * (HEIGHT + GAP)
    width = (WIDTH - 2 * MARGIN - (len(row) - 1) * GAP) / len(row)
    for column, (name, what) in enumerate(row):
        x = MARGIN + column * (width + GAP)
        colour = "#ffe9c7" if name in ("ui", "cli") else "#dbe6ff"
        print(f'<rect x="{x}" y="{y}" width="{width}" height="{HEIGHT}" rx="6" fill="{colour}" '
              f'stroke="#456"/>')
        print(f'<text x="{x + width / 2}" y="{y + 22}" text-anchor="middle" font-weight="bold" '
              f'font-size="15">src/{name}</text>')
        print(f'<text x="{x + width / 2}" y="{y + 41}" text-anchor="middle" font-size="12" '
              f'fill="#234">{what}</text>')
    if number + 1 < len(ROWS):
        middle = WIDTH / 2
        print(f'<line x1="{middle}" y1="{y + HEIGHT}" x2="{middle}" y2="{y + HEIGHT + GAP - 2}" '
              f'stroke="#456" stroke-width="2" marker-end="url(#tip)"/>')
print('</svg>')
