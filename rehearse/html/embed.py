#!/usr/bin/env python3
"""Makes a header of a page's style and script, with the hashes by which the page's policy admits them.

embed.py NAMESPACE HEADER SCRIPT STYLE...
"""
import base64
import hashlib
import sys


def text_of(path):
    with open(path, encoding="utf-8") as file:
        return "\n" + file.read()


def main():
    namespace, header, script, *styles = sys.argv[1:]
    lines = ["// Made by the build from the page's style and script.", "#pragma once", f"namespace {namespace} {{"]
    for name, text in (("Style", "".join(map(text_of, styles))), ("Script", text_of(script))):
        if "</" in text or ")~~\"" in text:
            sys.exit(f"{name}: would end the element or the literal that holds it")
        digest = base64.b64encode(hashlib.sha256(text.encode()).digest()).decode()
        lines += [f'inline constexpr char {name}[] = R"~~({text})~~";', f'inline constexpr char {name}Hash[] = "{digest}";']
    with open(header, "w", encoding="utf-8") as file:
        file.write("\n".join(lines + [f"}} // namespace {namespace}", ""]))


main()
