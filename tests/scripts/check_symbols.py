#!/usr/bin/env python3
"""Checks the dynamic symbols of libapi_c against the headers.

Every symbol the library exports must be declared with KX_API in one of its
headers (include/, src/, algo/), every KX_API declaration of the public
headers must be exported, no C++ symbol may leak, and the library must bind
its own references internally (DT_SYMBOLIC).

usage: check_symbols.py SOURCE_DIR LIBRARY
"""
import pathlib
import re
import subprocess
import sys

LINKER_SYMBOLS = {"_init", "_fini", "__bss_start", "_edata", "_end"}
INSTRUMENTATION = ("__odr_asan",)  # AddressSanitizer's ODR indicators, one per exported global
PUBLIC = ("kx_define.h", "kx_interface.h", "kx_version.h")


def strip_comments(text):
    text = re.sub(r"/\*.*?\*/", " ", text, flags=re.S)
    return re.sub(r"//[^\n]*", " ", text)


def names_in(text):
    """Names declared with KX_API in preprocessed-free C text."""
    names = set()
    for m in re.finditer(r"\bKX_API\b([^;{]*)", text):
        decl = m.group(1)
        if "(" in decl:
            pointer = re.match(r"[^(]*\(\s*\*\s*(\w+)\s*\)", decl)
            name = pointer.group(1) if pointer else re.search(r"(\w+)\s*\(", decl).group(1)
        else:
            found = re.findall(r"(\w+)\s*(?:\[[^\]]*\]\s*)*$", decl.strip())
            if not found:
                continue
            name = found[-1]
        names.add(name)
    return names


def declared(path):
    """Names declared with KX_API in one header, including those a
    declaring macro (#define M(P, ...) ... KX_API T P##name(...)) makes."""
    text = strip_comments(path.read_text()).replace("\\\n", " ")
    macros = {}
    plain = []
    for line in text.splitlines():
        d = re.match(r"\s*#\s*define\s+(\w+)\(([^)]*)\)(.*)", line)
        if d:
            macros[d.group(1)] = ([a.strip() for a in d.group(2).split(",")], d.group(3))
        elif not line.lstrip().startswith("#"):
            plain.append(line)
    plain = "\n".join(plain)
    names = names_in(plain)
    for macro, (params, body) in macros.items():
        if "KX_API" not in body:
            continue
        for call in re.finditer(r"\b%s\(([^)]*)\)" % macro, plain):
            expanded = body
            for param, arg in zip(params, (a.strip() for a in call.group(1).split(","))):
                expanded = re.sub(r"\b%s\b" % param, arg, expanded)
            names |= names_in(expanded.replace("##", "").replace(" ## ", ""))
    return names


def main():
    src, lib = pathlib.Path(sys.argv[1]), sys.argv[2]
    headers = [*src.glob("include/*.h"), *src.glob("src/**/*.h"), *src.glob("algo/*.h")]
    everywhere, public = set(), set()
    for h in headers:
        names = declared(h)
        everywhere |= names
        if h.parent.name == "include" and h.name in PUBLIC:
            public |= names
    out = subprocess.run(["nm", "-D", "--defined-only", lib], check=True, capture_output=True, text=True).stdout
    exported = {line.split()[-1].split("@")[0] for line in out.splitlines() if line.strip()} - LINKER_SYMBOLS
    exported = {name for name in exported if not name.startswith(INSTRUMENTATION)}
    problems = []
    for name in sorted(exported):
        if name.startswith("_Z"):
            problems.append(f"C++ symbol exported: {name}")
        elif name not in everywhere:
            problems.append(f"exported but declared with KX_API in no header: {name}")
    for name in sorted(public - exported):
        problems.append(f"declared in a public header but not exported: {name}")
    dyn = subprocess.run(["readelf", "-d", lib], check=True, capture_output=True, text=True).stdout
    if "SYMBOLIC" not in dyn:
        problems.append("the library does not bind its own references (link with -Bsymbolic)")
    for p in problems:
        print(p)
    print(f"{len(exported)} exported symbols, {len(public)} public declarations, {len(problems)} problems")
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
