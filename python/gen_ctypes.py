#!/usr/bin/env python3
"""Generates the ctypes layer of the kx_api Python package from the C headers.

    gen_ctypes.py --py OUT.py --c OUT.c HEADER...

Reads the public headers (in the order given, each may use what the ones
before it declared) and writes:
  OUT.py  every #define constant, every enumeration (an IntEnum plus its
          enumerators as module constants), every record as a
          ctypes.Structure/Union with the C layout, every callback type as a
          CFUNCTYPE, and every KX_API function's argtypes/restype;
  OUT.c   a program that prints sizeof and offsetof of every record, so a
          test can compare both sides byte for byte.
With --aliases DOXYFILE it also writes RESULTS, each function's documented
result codes (its @retval lines, the Doxyfile's ALIASES expanded), so an
error can be told in the words of the function that returned it.

The headers follow a regular style; anything outside it (an unknown type, a
bit-field, a function-like macro, a construct the parser does not know) stops
the generator with the file and line, so that nothing is silently mistyped.
"""
import argparse
import re
import sys

BASE_TYPES = {
    "void": None,
    "char": "ctypes.c_char",
    "signed char": "ctypes.c_byte",
    "unsigned char": "ctypes.c_ubyte",
    "short": "ctypes.c_short",
    "unsigned short": "ctypes.c_ushort",
    "int": "ctypes.c_int",
    "signed": "ctypes.c_int",
    "unsigned": "ctypes.c_uint",
    "signed int": "ctypes.c_int",
    "unsigned int": "ctypes.c_uint",
    "long": "ctypes.c_long",
    "unsigned long": "ctypes.c_ulong",
    "long long": "ctypes.c_longlong",
    "unsigned long long": "ctypes.c_ulonglong",
    "float": "ctypes.c_float",
    "double": "ctypes.c_double",
    "bool": "ctypes.c_bool",
    "_Bool": "ctypes.c_bool",
    "int8_t": "ctypes.c_int8",
    "uint8_t": "ctypes.c_uint8",
    "int16_t": "ctypes.c_int16",
    "uint16_t": "ctypes.c_uint16",
    "int32_t": "ctypes.c_int32",
    "uint32_t": "ctypes.c_uint32",
    "int64_t": "ctypes.c_int64",
    "uint64_t": "ctypes.c_uint64",
    "size_t": "ctypes.c_size_t",
    "va_list": "ctypes.c_void_p",
}
QUALIFIERS = {"const", "volatile", "extern", "static", "inline"}
TOKEN = re.compile(r"\s*(?:(?P<id>[A-Za-z_]\w*)|(?P<num>0[xX][0-9a-fA-F]+[uUlL]*|\d+(?:\.\d*)?(?:[eE][-+]?\d+)?[uUlLfF]*)"
                   r"|(?P<str>\"(?:\\.|[^\"\\])*\")|(?P<p>\.\.\.|[{}()\[\];:,.*=<>+\-|&~/]))")


class HeaderError(Exception):
    pass


class Tokens:
    def __init__(self, text, path):
        self.path = path
        self.toks = []  # (kind, value, line)
        pos = 0
        while True:
            m = TOKEN.match(text, pos)
            if not m or m.end() == pos:
                rest = text[pos:].strip()
                if rest:
                    line = text.count("\n", 0, len(text) - len(text[pos:].lstrip())) + 1
                    raise HeaderError(f"{path}:{line}: cannot read {rest[:30]!r}")
                break
            start = m.start(m.lastgroup)
            self.toks.append((m.lastgroup, m.group(m.lastgroup), text.count("\n", 0, start) + 1))
            pos = m.end()
        self.i = 0

    def peek(self, k=0):
        j = self.i + k
        return self.toks[j][1] if j < len(self.toks) else None

    def next(self):
        if self.i >= len(self.toks):
            raise HeaderError(f"{self.path}: unexpected end of file")
        t = self.toks[self.i]
        self.i += 1
        return t[1]

    def expect(self, value):
        got = self.next()
        if got != value:
            self.fail(f"expected {value!r}, found {got!r}", back=1)

    def line(self, back=0):
        j = min(max(self.i - back, 0), len(self.toks) - 1)
        return self.toks[j][2] if self.toks else 0

    def fail(self, why, back=0):
        raise HeaderError(f"{self.path}:{self.line(back)}: {why}")


class Model:
    def __init__(self):
        self.constants = {}   # name -> python literal text
        self.enums = {}       # name -> [(enumerator, value)]
        self.types = {}       # typedef name -> ctypes expression
        self.records = []     # (name, kind, packed, [(field, ctype)], path) in order
        self.record_names = {}  # struct tag / typedef -> python class name
        self.callbacks = []   # (name, restype, [argtypes])
        self.functions = []   # (name, restype, [argtypes])
        self.variables = []   # names of exported data (not bound)
        self.variadic = []    # functions taking "...": bound with their fixed arguments
        self.order = []       # ("record", record) / ("callback", name) / ("alias", name) in declaration order
        self.anon = 0

    # ---- types ----
    def resolve(self, words, pointers, toks):
        """ctypes expression for a base type (list of words) and pointer depth."""
        words = [w for w in words if not isinstance(w, str) or w not in QUALIFIERS]
        if words and words[0] in ("struct", "union") and isinstance(words[1], list):
            base = words[1][0]
        elif words and words[0] in ("struct", "union"):
            tag = words[1]
            base = self.record_names.get(tag)
            if base is None:
                if pointers:
                    return "ctypes.c_void_p" if pointers == 1 else "ctypes.POINTER(ctypes.c_void_p)"
                toks.fail(f"record 'struct {tag}' used by value before its definition")
        elif words and words[0] == "enum":
            base = "ctypes.c_int"
        else:
            key = " ".join(words)
            if key in BASE_TYPES:
                base = BASE_TYPES[key]
            elif key in self.types:
                base = self.types[key]
            else:
                toks.fail(f"unknown type {key!r}")
        for _ in range(pointers):
            if base is None:
                base = "ctypes.c_void_p"
            elif base == "ctypes.c_char":
                base = "ctypes.c_char_p"
            elif base == "ctypes.c_char_p":
                base = "ctypes.POINTER(ctypes.c_char_p)"
            else:
                base = f"ctypes.POINTER({base})"
        return base

    def const_value(self, expr, toks):
        text = re.sub(r"\b([A-Za-z_]\w*)\b", lambda m: str(self.int_constant(m.group(1), toks)), expr)
        text = re.sub(r"(\d)[uUlL]+\b", r"\1", text)
        if not re.fullmatch(r"[\d\s+\-*/()<>|&~xXa-fA-F]*", text):
            toks.fail(f"cannot evaluate {expr!r}")
        try:
            return int(eval(text.replace("/", "//"), {}, {}))  # digits and operators only
        except Exception:
            toks.fail(f"cannot evaluate {expr!r}")

    def int_constant(self, name, toks):
        for values in self.enums.values():
            for n, v in values:
                if n == name:
                    return v
        if name in self.constants and re.fullmatch(r"-?\d+", self.constants[name]):
            return int(self.constants[name])
        toks.fail(f"unknown constant {name!r}")


def strip_comments(text):
    def keep_lines(m):
        return "\n" * m.group(0).count("\n")
    text = re.sub(r"/\*.*?\*/", keep_lines, text, flags=re.S)
    return re.sub(r"//[^\n]*", "", text)


def preprocess(text, path, model):
    """Takes the #define constants, drops the preprocessor lines and the
    C++-only blocks; returns the C text (line numbers kept)."""
    out = []
    lines = text.split("\n")
    skip = 0  # depth inside #ifdef __cplusplus
    for n, line in enumerate(lines, 1):
        s = line.strip()
        if not s.startswith("#"):
            out.append("" if skip else line)
            continue
        out.append("")
        d = re.match(r"#\s*(\w+)\s*(.*)", s)
        directive, rest = d.group(1), d.group(2).strip()
        if directive in ("ifdef", "if", "ifndef") and "__cplusplus" in rest:
            skip += 1 if directive != "ifndef" else 0
        elif directive == "endif" and skip:
            skip -= 1
        elif skip or directive in ("ifndef", "ifdef", "if", "else", "elif", "endif", "include", "pragma", "undef"):
            continue
        elif directive == "define":
            m = re.match(r"(\w+)(\()?\s*(.*)", rest)
            name, function_like, value = m.group(1), m.group(2), m.group(3).strip()
            if name == "KX_API" or name.endswith("_H"):
                continue
            if function_like:
                raise HeaderError(f"{path}:{n}: function-like macro {name} is not supported")
            if not value:
                continue
            if re.fullmatch(r'"(?:\\.|[^"\\])*"', value):
                model.constants[name] = value
            elif re.fullmatch(r"-?(?:0[xX][0-9a-fA-F]+|\d+)[uUlL]*", value):
                model.constants[name] = str(int(re.sub(r"[uUlL]+$", "", value), 0))
            elif re.fullmatch(r"-?\d+\.\d*(?:[eE][-+]?\d+)?[fF]?", value):
                model.constants[name] = value.rstrip("fF")
            else:
                raise HeaderError(f"{path}:{n}: cannot read the value of {name}: {value!r}")
        else:
            raise HeaderError(f"{path}:{n}: unsupported directive #{directive}")
    return "\n".join(out)


def skip_attribute(toks):
    """Consumes __attribute__((...)); returns the attribute names."""
    names = []
    while toks.peek() == "__attribute__":
        toks.next()
        toks.expect("(")
        depth = 1
        while depth:
            t = toks.next()
            if t == "(":
                depth += 1
            elif t == ")":
                depth -= 1
            elif depth == 2 and re.fullmatch(r"[A-Za-z_]\w*", t):
                names.append(t)
    for a in names:
        if a not in ("packed", "format", "printf", "visibility", "aligned", "deprecated"):
            toks.fail(f"unsupported attribute {a}")
        if a == "aligned":
            toks.fail("aligned records are not supported")
    return names


NUMERIC = {"unsigned", "signed", "short", "long", "int", "char", "float", "double", "void"}


def parse_base(toks, model):
    """Reads a type's words (qualifiers, base name, struct/union/enum tag or
    inline body). Returns the word list; an inline body appears as its record
    (a list) or as ("enum", values)."""
    words, named, numeric = [], False, False
    while True:
        t = toks.peek()
        if t in QUALIFIERS:
            words.append(toks.next())
        elif t in NUMERIC and not named:
            words.append(toks.next())
            numeric = True
        elif t in ("struct", "union", "enum") and not (named or numeric):
            kind = toks.next()
            tag = toks.next() if re.fullmatch(r"[A-Za-z_]\w*", toks.peek() or "") and toks.peek() != "__attribute__" else None
            if toks.peek() in ("{", "__attribute__"):
                return words + [kind, parse_body(toks, model, kind, tag)]
            if tag is None:
                toks.fail(f"{kind} without a name or a body")
            return words + [kind, tag]
        elif (t is not None and re.fullmatch(r"[A-Za-z_]\w*", t) and not named and not numeric
              and t not in ("KX_API", "__attribute__", "typedef")):
            words.append(toks.next())
            named = True
        else:
            if not (named or numeric):
                toks.fail(f"expected a type, found {t!r}")
            return words


def parse_declarator(toks, model):
    """Pointers, name, array sizes, or a function pointer (*name)(params).
    Returns (name, pointers, dims, fnptr) where fnptr = params or None."""
    pointers = 0
    while toks.peek() in ("*", "const", "volatile"):
        if toks.next() == "*":
            pointers += 1
    if toks.peek() == "(":
        toks.next()
        toks.expect("*")
        name = toks.next()
        toks.expect(")")
        params = parse_params(toks, model)
        return name, pointers, [], params
    name = toks.next()
    if not re.fullmatch(r"[A-Za-z_]\w*", name):
        toks.fail(f"expected a name, found {name!r}", back=1)
    dims = []
    while toks.peek() == "[":
        toks.next()
        expr = []
        while toks.peek() != "]":
            expr.append(toks.next())
        toks.next()
        dims.append(model.const_value(" ".join(expr), toks))
    return name, pointers, dims, None


def parse_params(toks, model):
    toks.expect("(")
    params = []
    if toks.peek() == "void" and toks.peek(1) == ")":
        toks.next()
    while toks.peek() != ")":
        if toks.peek() == "...":
            toks.next()
            params.append("...")
            continue
        words = parse_base(toks, model)
        pointers = 0
        while toks.peek() in ("*", "const"):
            if toks.next() == "*":
                pointers += 1
        if toks.peek() == "(":
            name, p2, _, fn = parse_declarator(toks, model)
            params.append("ctypes.c_void_p")
        else:
            if re.fullmatch(r"[A-Za-z_]\w*", toks.peek() or ""):
                toks.next()
            arrays = 0
            while toks.peek() == "[":
                while toks.next() != "]":
                    pass
                arrays += 1
            params.append(model.resolve(words, pointers + arrays, toks))
        if toks.peek() == ",":
            toks.next()
    toks.expect(")")
    return params


def parse_body(toks, model, kind, tag):
    """A struct/union/enum body; returns the python name it gets."""
    packed = "packed" in skip_attribute(toks)
    toks.expect("{")
    if kind == "enum":
        values, nxt = [], 0
        while toks.peek() != "}":
            name = toks.next()
            if toks.peek() == "=":
                toks.next()
                expr = []
                while toks.peek() not in (",", "}"):
                    expr.append(toks.next())
                nxt = model.const_value(" ".join(expr), toks)
            values.append((name, nxt))
            nxt += 1
            if toks.peek() == ",":
                toks.next()
        toks.next()
        model.anon += 1
        return ("enum", values)
    fields = []
    while toks.peek() != "}":
        words = parse_base(toks, model)
        while True:
            name, pointers, dims, fn = parse_declarator(toks, model)
            if toks.peek() == ":":
                toks.fail("bit-fields are not supported")
            ctype = "ctypes.c_void_p" if fn is not None else model.resolve(words, pointers, toks)
            if ctype is None:
                toks.fail(f"field {name} has type void")
            for d in reversed(dims):
                ctype = f"({ctype} * {d})"
            fields.append((name, ctype))
            if toks.peek() == ",":
                toks.next()
                continue
            break
        toks.expect(";")
    toks.next()
    packed = packed or "packed" in skip_attribute(toks)
    model.anon += 1
    pyname = tag or f"_anon{model.anon}"
    record = [pyname, kind, packed, fields]
    model.records.append(record)
    model.order.append(("record", record))
    if tag:
        model.record_names[tag] = pyname
    return record


def parse_header(path, model):
    text = preprocess(strip_comments(open(path).read()), path, model)
    toks = Tokens(text, path)
    while toks.peek() is not None:
        t = toks.peek()
        if t == ";":
            toks.next()
        elif t == "typedef":
            toks.next()
            words = parse_base(toks, model)
            body = words[-1] if words and not isinstance(words[-1], str) else None
            if isinstance(body, tuple):  # enum body
                name = toks.next()
                model.enums[name] = body[1]
                model.types[name] = "ctypes.c_int"
            elif isinstance(body, list):  # struct/union body: the record takes the typedef's name
                name = toks.next()
                old = body[0]
                body[0] = name
                _fixup_anon(model, old, name)
                model.record_names[name] = name
                model.types[name] = name
                body[2] = body[2] or "packed" in skip_attribute(toks)
            else:
                name, pointers, dims, fn = parse_declarator(toks, model)
                if fn is not None:
                    model.callbacks.append((name, model.resolve(words, pointers, toks), fn))
                    model.types[name] = name
                    model.order.append(("callback", name))
                else:
                    ctype = model.resolve(words, pointers, toks)
                    for d in reversed(dims):
                        ctype = f"({ctype} * {d})"
                    model.types[name] = ctype
                    model.order.append(("alias", name))
            toks.expect(";")
        elif t == "KX_API":
            toks.next()
            extern = toks.peek() == "extern"
            words = parse_base(toks, model)
            name, pointers, dims, fn = parse_declarator(toks, model)
            if toks.peek() == "(":
                params = parse_params(toks, model)
                skip_attribute(toks)
                if "..." in params:
                    params.remove("...")
                    model.variadic.append(name)
                model.functions.append((name, model.resolve(words, pointers, toks), params))
            elif extern or fn is None:
                model.variables.append(name)
            toks.expect(";")
        elif t in ("struct", "union") and toks.peek(2) == ";":  # forward declaration
            toks.next(), toks.next(), toks.next()
        elif t in ("struct", "union", "enum"):
            parse_base(toks, model)
            toks.expect(";")
        else:
            toks.fail(f"unsupported declaration starting with {t!r}")


def _fixup_anon(model, old, new):
    if old == new:
        return
    for tag, pyname in list(model.record_names.items()):
        if pyname == old:
            model.record_names[tag] = new
    for rec in model.records:
        rec[3] = [(f, re.sub(r"\b%s\b" % old, new, c)) for f, c in rec[3]]


def read_aliases(path):
    """{name: text} from a Doxyfile's ALIASES = "name=text" \\ ... lines."""
    aliases, on = {}, False
    for line in open(path):
        if line.startswith("ALIASES"):
            on = True
        if on:
            for item in re.findall(r'"((?:\\.|[^"\\])*)"', line):
                name, _, text = item.partition("=")
                aliases[name.split("{")[0]] = text.replace("^^", "\n")
            on = line.rstrip().endswith("\\")
    return aliases


def read_results(text, aliases):
    """{function: {code: text}} from the @retval lines of each KX_API
    function's doc comment."""
    def expand(doc, depth=0):
        if depth > 5:
            return doc
        return re.sub(r"\\(\w+)(?:\{[^}]*\})?", lambda m: expand(aliases[m.group(1)], depth + 1)
                      if m.group(1) in aliases else m.group(0), doc)

    results = {}
    for m in re.finditer(r"/\*\*(.*?)\*/\s*KX_API\b[^;(]*?\b(\w+)\s*\(", text, re.S):
        doc = "\n".join(re.sub(r"^\s*\*? ?", "", ln) for ln in m.group(1).splitlines())
        codes = {}
        for r in re.finditer(r"@retval\s+(-?\d+)\s+(.*?)(?=\n\s*[@\\]|\n\s*\n|\Z)", expand(doc), re.S):
            codes.setdefault(int(r.group(1)), " ".join(r.group(2).split()).rstrip("."))
        # The brief form: "0 done; 1 refused; -2 no reply in time."
        brief = re.search(r"(?<![\w.-])(0 [^;]*?(?:; -?\d+ [^;]*?)+)\.(?:\s|$)", " ".join(doc.split()))
        if not codes and brief:
            for item in brief.group(1).split("; "):
                code, _, meaning = item.partition(" ")
                codes.setdefault(int(code), meaning)
        if codes:
            results[m.group(2)] = codes
    return results


def write_python(model, out, headers, results=None):
    w = out.write
    w("# Generated by gen_ctypes.py from " + ", ".join(h.rsplit("/", 1)[-1] for h in headers) + ".\n")
    w("# Do not edit: change the headers and rebuild.\n")
    w("import ctypes\nimport enum\n\n")
    w("# ---- constants\n")
    for name, value in model.constants.items():
        w(f"{name} = {value}\n")
    w("\n# ---- enumerations\n")
    for name, values in model.enums.items():
        w(f"\n\nclass {name}(enum.IntEnum):\n")
        for n, v in values:
            w(f"    {n} = {v}\n")
    w("\n\n")
    for name, values in model.enums.items():
        for n, v in values:
            w(f"{n} = {name}.{n}\n")
    w("\n# ---- records, callback types and type names, in declaration order\n")
    for name, kind, packed, fields in model.records:
        base = "ctypes.Union" if kind == "union" else "ctypes.Structure"
        w(f"\n\nclass {name}({base}):\n    pass\n")
    w("\n")
    callbacks = {c[0]: c for c in model.callbacks}
    for what, item in model.order:
        if what == "record":
            name, kind, packed, fields = item
            if packed:
                w(f"{name}._pack_ = 1\n")
            w(f"{name}._fields_ = [\n")
            for f, c in fields:
                w(f"    ({f!r}, {c}),\n")
            w("]\n")
        elif what == "callback":
            name, restype, params = callbacks[item]
            w(f"{name} = ctypes.CFUNCTYPE({restype}, {', '.join(params)})\n")
        else:
            w(f"{item} = {model.types[item]}\n")
    w("\nRECORDS = (" + "".join(f"{r[0]}, " for r in model.records if not r[0].startswith('_anon')) + ")\n")
    w("VARIABLES = (" + "".join(f"{v!r}, " for v in model.variables) + ")\n")
    w("VARIADIC = (" + "".join(f"{v!r}, " for v in model.variadic) + ")\n")
    w("\n# ---- functions: name -> (restype, argtypes)\nFUNCTIONS = {\n")
    for name, restype, params in model.functions:
        w(f"    {name!r}: ({restype}, [{', '.join(params)}]),\n")
    w("}\n")
    w("\n# ---- documented result codes: name -> {code: meaning}\nRESULTS = {\n")
    for name, codes in (results or {}).items():
        w(f"    {name!r}: {codes!r},\n")
    w("}\n")


def write_c(model, out, headers):
    w = out.write
    w("/* Generated by gen_ctypes.py: prints the layout of every record. */\n#include <stddef.h>\n#include <stdio.h>\n")
    for h in headers:
        w(f'#include "{h.rsplit("/", 1)[-1]}"\n')
    w("int main(void) {\n")
    for name, kind, packed, fields in model.records:
        if name.startswith("_anon"):
            continue
        w(f'    printf("{name} %zu\\n", sizeof({name}));\n')
        for f, _ in fields:
            w(f'    printf("{name}.{f} %zu\\n", offsetof({name}, {f}));\n')
    w("    return 0;\n}\n")


def main():
    ap = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    ap.add_argument("--py", required=True)
    ap.add_argument("--c", required=True)
    ap.add_argument("--aliases", help="Doxyfile whose ALIASES the doc comments use")
    ap.add_argument("headers", nargs="+")
    args = ap.parse_args()
    model = Model()
    try:
        for h in args.headers:
            parse_header(h, model)
    except HeaderError as e:
        sys.exit(f"gen_ctypes: {e}")
    aliases = read_aliases(args.aliases) if args.aliases else {}
    results = {}
    for h in args.headers:
        results.update(read_results(open(h).read(), aliases))
    with open(args.py, "w") as f:
        write_python(model, f, args.headers, results)
    with open(args.c, "w") as f:
        write_c(model, f, args.headers)


if __name__ == "__main__":
    main()
