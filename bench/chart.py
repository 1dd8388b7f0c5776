"""Draws the ratios of bench/compare as a picture: a bar a row, its target as a mark."""

from xml.sax.saxutils import escape

ROW = 20
LABELS = 430
WIDTH = 480
LARGEST = 1.5  # longer bars are cut


def svg(rows):
    """rows: (label, ratio, target), the target None where there is none."""
    height = ROW * len(rows) + 50
    scale = WIDTH / LARGEST
    out = [f'<svg xmlns="http://www.w3.org/2000/svg" width="{LABELS + WIDTH + 60}" height="{height}" '
           'font-family="sans-serif" font-size="12">',
           '<rect width="100%" height="100%" fill="white"/>',
           f'<text x="{LABELS}" y="16" fill="#444">time of ours, the peer\'s being 1; the mark is the target</text>']
    for tick in (0.0, 0.25, 0.5, 0.75, 1.0, 1.25, 1.5):
        x = LABELS + tick * scale
        out.append(f'<line x1="{x:.1f}" y1="24" x2="{x:.1f}" y2="{height - 22}" '
                   f'stroke="{"#888" if tick == 1.0 else "#ddd"}"/>')
        out.append(f'<text x="{x:.1f}" y="{height - 8}" text-anchor="middle" fill="#444">{tick:g}</text>')
    for i, (label, ratio, target) in enumerate(rows):
        y = 28 + i * ROW
        met = target is None or ratio <= target
        out.append(f'<text x="{LABELS - 8}" y="{y + 12}" text-anchor="end">{escape(label)}</text>')
        out.append(f'<rect x="{LABELS}" y="{y + 2}" width="{min(ratio, LARGEST) * scale:.1f}" height="{ROW - 7}" '
                   f'fill="{"#3a7" if met else "#d73"}"/>')
        out.append(f'<text x="{LABELS + min(ratio, LARGEST) * scale + 4:.1f}" y="{y + 12}" fill="#222">{ratio:.2f}</text>')
        if target is not None:
            x = LABELS + min(target, LARGEST) * scale
            out.append(f'<line x1="{x:.1f}" y1="{y}" x2="{x:.1f}" y2="{y + ROW - 3}" stroke="#000" stroke-width="2"/>')
    out.append("</svg>")
    return "\n".join(out) + "\n"
