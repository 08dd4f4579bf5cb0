"""Contents of pages for the tests of browsers."""
LONG = 10734


def long_body():
    """Paragraphs whose innerText has LONG characters: one line each, an empty one between."""
    line = "The hut above the lake is booked for the second week of July. "
    lines, left = [], LONG
    while left > 0:
        part = (f"{len(lines)}: " + line * 3)[:left].strip()
        lines.append(part)
        left -= len(part) + 2
    lines[-1] += "x" * (left + 2)
    return "".join(f"<p>{part}</p>" for part in lines)


def one_page_pdf():
    """The smallest document with a page; readers rebuild its missing index."""
    return (b"%PDF-1.4\n1 0 obj<</Type/Catalog/Pages 2 0 R>>endobj\n"
            b"2 0 obj<</Type/Pages/Kids[3 0 R]/Count 1>>endobj\n"
            b"3 0 obj<</Type/Page/Parent 2 0 R/MediaBox[0 0 200 200]>>endobj\n"
            b"trailer<</Root 1 0 R>>\n%%EOF\n")
