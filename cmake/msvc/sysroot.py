#!/usr/bin/env python3
"""Builds the Windows SDK and C runtime that the MSVC-ABI cross build compiles and links
against, from open parts only:

  include/msvcrt, include/windows  Wine's C runtime and Windows headers, with the four edits
                                   that the MSVC ABI needs (see patch_wine_headers)
  lib/*.lib                        import libraries made from the export tables of Wine's PE
                                   DLLs and of OpenVINO's openvino.dll; msvcrt.lib, msvcprt.lib
                                   and delayimp.lib also carry our start-up code and the few
                                   sources of microsoft/STL that MSVC links statically

usage: sysroot.py OUT --wine-headers DIR --wine-dlls DIR --stl DIR --openvino-dll FILE --llvm DIR
"""
import argparse
import os
import struct
import subprocess
import sys

HERE = os.path.dirname(os.path.abspath(__file__))

# Import libraries for these DLLs of Wine's, under the names MSVC's libraries have.
# (CMake links the first eight into every program, as with MSVC.)
SYSTEM_LIBS = ["kernel32", "user32", "gdi32", "shell32", "ole32", "oleaut32", "comdlg32", "advapi32",
               "setupapi"]
RUNTIME_DLLS = ["ucrtbase", "vcruntime140", "vcruntime140_1", "msvcp140", "msvcp140_1",
                "msvcp140_2", "msvcp140_atomic_wait"]
# MSVC's msvcprt.lib links these sources of its standard library statically; the DLL has no
# exports for them.
STL_SOURCES = ["filesystem", "syserror_import_lib", "xonce2", "sharedmutex"]


def pe_exports(path):
    """(DLL name, [(export name, is_data)]) from a PE32+ image's export table. An export
    outside every executable section is data: its import library entry gets no code thunk."""
    b = open(path, "rb").read()
    pe = struct.unpack_from("<I", b, 0x3C)[0]
    count, = struct.unpack_from("<H", b, pe + 6)
    optional_size, = struct.unpack_from("<H", b, pe + 20)
    opt = pe + 24
    if struct.unpack_from("<H", b, opt)[0] != 0x20B:
        sys.exit(f"{path}: not a PE32+ image")
    export_rva, export_size = struct.unpack_from("<II", b, opt + 112)
    sections = []
    for i in range(count):
        o = opt + optional_size + 40 * i
        vsize, va, rsize, raw = struct.unpack_from("<IIII", b, o + 8)
        flags, = struct.unpack_from("<I", b, o + 36)
        sections.append((va, max(vsize, rsize), raw, flags))

    def section(rva):
        return next((s for s in sections if s[0] <= rva < s[0] + s[1]), None)

    def offset(rva):
        s = section(rva)
        return rva - s[0] + s[2]

    def text(rva):
        o = offset(rva)
        return b[o:b.index(b"\0", o)].decode()

    d = offset(export_rva)
    name_rva, _, functions, names, address_table, name_table, ordinal_table = \
        struct.unpack_from("<IIIIIII", b, d + 12)
    addresses = struct.unpack_from(f"<{functions}I", b, offset(address_table))
    name_rvas = struct.unpack_from(f"<{names}I", b, offset(name_table))
    ordinals = struct.unpack_from(f"<{names}H", b, offset(ordinal_table))
    exports = []
    for n, o in zip(name_rvas, ordinals):
        rva = addresses[o]
        forwarded = export_rva <= rva < export_rva + export_size
        s = section(rva)
        code = forwarded or (s is not None and s[3] & 0x20000000)  # IMAGE_SCN_MEM_EXECUTE
        exports.append((text(n), not code))
    return text(name_rva), exports


def write_def(path, dll, exports):
    with open(path, "w") as f:
        f.write(f'LIBRARY "{dll}"\nEXPORTS\n')
        f.writelines(f'  "{name}"{" DATA" if data else ""}\n' for name, data in exports)


def patch(path, old, new, count=1):
    """Replaces `old` by `new` in a header; fails loudly if the header changed under us."""
    with open(path) as f:
        content = f.read()
    if content.count(old) != count:
        sys.exit(f"{path}: expected {count} of {old!r}")
    with open(path, "w") as f:
        f.write(content.replace(old, new))


def patch_wine_headers(src, out):
    subprocess.check_call(["rm", "-rf", f"{out}/msvcrt", f"{out}/windows"])
    subprocess.check_call(["cp", "-r", f"{src}/msvcrt", f"{src}/windows", out])
    mbstate = ("#ifndef _MBSTATET_DEFINED\n#define _MBSTATET_DEFINED\n"
               "typedef struct _Mbstatet { unsigned long _Wchar; unsigned short _Byte, _State; } _Mbstatet;\n"
               "#endif\n")
    # mbstate_t is MSVC's 8-byte struct: it is part of std::fpos and codecvt layouts and of the
    # mangled names msvcp140.dll exports.
    patch(f"{out}/msvcrt/wchar.h", "typedef int mbstate_t;", mbstate + "typedef _Mbstatet mbstate_t;")
    with open(f"{out}/msvcrt/corecrt.h", "a") as f:
        f.write("\n/* MSVC declares the mbstate_t layout here */\n" + mbstate)
    # windef.h must not #define the C++ keyword inline (the STL refuses keyword macros).
    patch(f"{out}/windows/windef.h", "#ifdef _MSC_VER\n# define inline",
          "#if defined(_MSC_VER) && !defined(__cplusplus)\n# define inline")
    # WCHAR is wchar_t under the MSVC ABI: it is part of every mangled name of a W function.
    patch(f"{out}/windows/winnt.h", "#if defined(WINE_UNICODE_NATIVE)\n",
          "#if defined(WINE_UNICODE_NATIVE) || defined(_MSC_VER)\n")
    # ucrtbase exports terminate() and its kin with C linkage.
    patch(f"{out}/msvcrt/eh.h", "#include <pshpack8.h>\n",
          '#include <pshpack8.h>\n#ifdef __cplusplus\nextern "C" {\n#endif\n')
    patch(f"{out}/msvcrt/eh.h", "#include <poppack.h>\n", '#ifdef __cplusplus\n}\n#endif\n#include <poppack.h>\n')


def main():
    p = argparse.ArgumentParser()
    p.add_argument("out")
    for option in ("--wine-headers", "--wine-dlls", "--stl", "--openvino-dll", "--llvm"):
        p.add_argument(option, required=True)
    a = p.parse_args()
    inc, lib, work = (os.path.join(a.out, d) for d in ("include", "lib", "obj"))
    for d in (inc, lib, work):
        os.makedirs(d, exist_ok=True)
    patch_wine_headers(a.wine_headers, inc)

    def implib(dll_path, name, keep=lambda _: True):
        dll, exports = pe_exports(dll_path)
        definition = os.path.join(work, name + ".def")
        write_def(definition, dll, [e for e in exports if keep(e[0])])
        out = os.path.join(work if name in RUNTIME_DLLS else lib, name + ".lib")
        subprocess.check_call([f"{a.llvm}/llvm-dlltool", "-m", "i386:x86-64", "-d", definition, "-l", out])
        return out, {e[0] for e in exports}

    for name in SYSTEM_LIBS:
        implib(f"{a.wine_dlls}/{name}.dll", name)
    implib(f"{a.wine_dlls}/winspool.drv", "winspool")
    implib(a.openvino_dll, "openvino")
    combase, _ = implib(f"{a.wine_dlls}/combase.dll", "combase")
    for alias in ("windowsapp", "runtimeobject"):  # the WinRT umbrella libraries are combase's
        subprocess.check_call(["cp", combase, f"{lib}/{alias}.lib"])
    runtime, names = {}, {}
    for name in RUNTIME_DLLS[1:]:
        runtime[name], names[name] = implib(f"{a.wine_dlls}/{name}.dll", name)
    # What vcruntime140 exports binds there, as with MSVC, not to ucrtbase's copies.
    vcruntime = names["vcruntime140"] | names["vcruntime140_1"]
    runtime["ucrtbase"], _ = implib(f"{a.wine_dlls}/ucrtbase.dll", "ucrtbase", lambda n: n not in vcruntime)

    flags = ["--target=x86_64-pc-windows-msvc", "-fms-compatibility-version=19.44", "/std:c++20", "/EHsc",
             "/MD", "/GS-", "/O2", "/X", "/W4", "/WX", "-D_USE_STD_VECTOR_ALGORITHMS=0", "-D_WIN32_WINNT=0x0A00",
             "-imsvc", f"{HERE}/include", "-imsvc", f"{a.stl}/inc", "-imsvc", f"{inc}/msvcrt",
             "-imsvc", f"{inc}/windows"]

    def compile_(source, extra=()):
        obj = os.path.join(work, os.path.basename(source).replace(".cpp", ".obj"))
        subprocess.check_call([f"{a.llvm}/clang-cl", *flags, *extra, "/c", f"/Fo{obj}", "--", source])
        return obj

    crt = [compile_(f"{HERE}/crt/{s}.cpp") for s in ("dll_startup", "exe_startup")]
    stl = [compile_(f"{HERE}/crt/stl_support.cpp")]
    stl += [compile_(f"{a.stl}/src/{s}.cpp", ["/W0", "-imsvc", f"{HERE}/stlsrc", "/FIwin32_extra.h"])
            for s in STL_SOURCES]
    delay = [compile_(f"{HERE}/crt/delay_load.cpp")]

    def archive(name, members):
        subprocess.check_call([f"{a.llvm}/llvm-lib", f"/out:{lib}/{name}.lib", *members])

    # Named as MSVC's: clang-cl's /MD asks the linker for msvcrt.lib, oldnames.lib and, for C++,
    # msvcprt.lib. CMake's Debug probes ask for the d-suffixed ones.
    archive("msvcrt", crt + [runtime[n] for n in ("vcruntime140", "vcruntime140_1", "ucrtbase")])
    archive("msvcprt", stl + [runtime[n] for n in RUNTIME_DLLS[3:]])
    archive("delayimp", delay)
    archive("oldnames", [runtime["ucrtbase"]])
    for name in ("msvcrt", "msvcprt"):
        subprocess.check_call(["cp", f"{lib}/{name}.lib", f"{lib}/{name}d.lib"])
    subprocess.check_call(["cp", "/usr/x86_64-w64-mingw32/lib/libuuid.a", f"{lib}/uuid.lib"])


if __name__ == "__main__":
    main()
