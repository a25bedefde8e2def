"""The header parser: what it reads, and that it stops loudly on what it cannot."""
import ctypes
import os
import subprocess
import sys

import pytest

GEN = os.path.join(os.path.dirname(__file__), "..", "gen_ctypes.py")


def generate(tmp_path, header, doxyfile=None):
    h = tmp_path / "t.h"
    h.write_text(header)
    py, c = tmp_path / "out.py", tmp_path / "out.c"
    aliases = []
    if doxyfile:
        (tmp_path / "Doxyfile").write_text(doxyfile)
        aliases = ["--aliases", str(tmp_path / "Doxyfile")]
    run = subprocess.run([sys.executable, GEN, "--py", str(py), "--c", str(c), *aliases, str(h)],
                         capture_output=True, text=True)
    if run.returncode:
        return run.stderr
    namespace = {}
    exec(py.read_text(), namespace)
    return namespace


def test_reads_the_headers_style(tmp_path):
    ns = generate(tmp_path, """
#define N 4
#define NAME "x"
typedef enum { A = 1, B, C = N * 2 } e_t;
struct opaque;
typedef struct __attribute__((packed)) { unsigned char tag; int value; } packed_t;
typedef struct node { int (*fn)(struct node* self, int n); struct opaque* o; float m[N][2];
                      union { int i; char s[N]; } u; e_t e; } node_t;
typedef void (*cb_t)(node_t n);
KX_API const char* name(void);
KX_API int take(node_t* n, const float* const q, cb_t cb, ...) __attribute__((format(printf, 1, 2)));
""")
    assert ns["N"] == 4 and ns["NAME"] == "x"
    assert (ns["A"], ns["B"], ns["C"]) == (1, 2, 8)
    assert ctypes.sizeof(ns["packed_t"]) == 5 and ns["packed_t"].value.offset == 1
    node = ns["node_t"]
    assert [f for f, _ in node._fields_] == ["fn", "o", "m", "u", "e"]
    assert node.u.offset == 8 + 8 + 4 * 4 * 2  # after two pointers and m
    assert ns["FUNCTIONS"]["name"][0] is ctypes.c_char_p
    assert ns["FUNCTIONS"]["take"][1][2] is ns["cb_t"] and ns["VARIADIC"] == ("take",)


def test_reads_each_functions_result_codes(tmp_path):
    ns = generate(tmp_path, """
/** Solves.
 * @retval 0 solved.
 * @retval 1 no solution (out of reach,
 *   or singular).
 * @par Blocking
 * Local.
 */
KX_API int solve(int x);
/** Sets.
 \\rc_set \\blocks{500}
 */
KX_API int set(int x);
/** Saves. Blocks 2 s. 0 saved; 1 refused; -4 the file could not be opened. */
KX_API int save(const char* f);
KX_API int bare(void);
""", doxyfile='OTHER = 1\nALIASES = "rc_common=@retval -2 No reply.^^" \\\n'
        '          "rc_set=@retval 0 Accepted.^^@retval 1 Refused.^^\\rc_common" \\\n'
        '          "blocks{1}=@par Blocking^^Waits \\1 ms.^^"\nNEXT = 2\n')
    assert ns["RESULTS"]["solve"] == {0: "solved", 1: "no solution (out of reach, or singular)"}
    assert ns["RESULTS"]["set"] == {0: "Accepted", 1: "Refused", -2: "No reply"}
    assert ns["RESULTS"]["save"] == {0: "saved", 1: "refused", -4: "the file could not be opened"}
    assert "bare" not in ns["RESULTS"]


@pytest.mark.parametrize("header, complaint", [
    ("typedef struct {\n  mystery_t x;\n} r_t;\n", "t.h:2: unknown type 'mystery_t'"),
    ("typedef struct {\n  int x : 3;\n} r_t;\n", "t.h:2: bit-fields are not supported"),
    ("#define TWICE(x) ((x) * 2)\n", "t.h:1: function-like macro TWICE"),
    ("typedef struct {\n  int x;\n} __attribute__((aligned(16))) r_t;\n", "aligned records are not supported"),
    ("static int counter = 0;\n", "t.h:1: unsupported declaration"),
])
def test_stops_with_file_and_line_on_what_it_cannot_read(tmp_path, header, complaint):
    assert complaint in generate(tmp_path, header)
