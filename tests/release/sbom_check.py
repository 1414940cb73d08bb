#!/usr/bin/env python3
# SPDX-License-Identifier: GPL-2.0-only
"""The bill of materials of each program and library names what the linker took in, and nothing else: they are linked once more
with a map, and what stands in it, by its file, is held against the bill. The third-party notices name all of it, with its
version. Usage: sbom_check.py BUILD
"""
import json
import os
import re
import subprocess
import sys

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
sys.path.insert(0, os.path.join(ROOT, "scripts", "bill"))

from components import COMPONENTS, described  # noqa: E402

MINGW = "x86_64-w64-mingw32"
# By which a file in a link map is known; the first that fits counts. None: a file of ours, or an archive of another DLL's names.
FILES = [
    (r"/libzelk_libpri\.a$", "libpri"),
    (r"/libzelk_echocan\.a$|/echocan/", "spandsp"),
    (r"/libsndfile\.a$", "libsndfile"),
    (r"/libzelk_pcap\.a$", "libpcap"),
    (r"/libzelk_pugixml\.a$", "pugixml"),
    (r"/libzelk_fmt\.a$", "fmt"),
    (r"/libcardsim_asio\.a$", "asio"),
    (r"^lib/(static/)?lib(zelk|cardsim|phone|switchboard|tool|trace|doctor|replay)(_\w+)?\.a$|^lib/libZelkApi64\.dll\.a$|^(src|tools|bindings)/.*\.(o|obj|res)$", None),
    (MINGW + r".*/libstdc\+\+\.a$", "libstdc++-mingw"),
    (MINGW + r".*/(libgcc(_eh)?\.a|crt(begin|end)\w*\.o)$", "libgcc-mingw"),
    (MINGW + r".*/lib(winpthread|pthread)\.a$", "winpthreads"),
    (MINGW + r".*/lib(mingw32|mingwex|msvcrt|moldname)\.a$|" + MINGW + r".*/(dll)?crt2\w*\.o$", "mingw-w64"),
    (MINGW + r".*/lib(kernel32|ws2_32|iphlpapi|avrt|winmm|ntdll|advapi32|mswsock|bcrypt|user32|shell32)\.a$", None),
    (r"/gcc/[^/]*/\d+/(libgcc(_eh)?\.a|crt(begin|end)\w*\.o)$", "libgcc"),
    (r"/(S?crt[1in]|libc_nonshared)\.[ao]$", "glibc"),
]
# Libraries of headers leave no file behind, but names.
NAMES = {"asio": r"\basio::", "CLI11": r"\bCLI::", "fmt": r"\bfmt::v\d+::", "nlohmann-json": r"\bnlohmann::",
         "toml11": r"\btoml::"}
# What is linked from C alone has no names of its own to be seen in a program without them.
PROGRAMS = {"Linux": ["lib/libZelkApi-64.so", "lib/libzelkqueue.so", "bin/zelk-phone", "bin/zelk-cardsim", "bin/zelk-trace",
                      "bin/zelk-extcap", "bin/zelk-doctor", "bin/zelk-replay"],
            "Windows": ["bin/ZelkApi64.dll", "bin/zelkqueue.dll", "bin/zelk-phone.exe", "bin/zelk-cardsim.exe",
                        "bin/zelk-trace.exe", "bin/zelk-doctor.exe"]}


def link_map(build, program, work):
    """The files that the linker took in, archives by their own name."""
    listed = subprocess.run(["ninja", "-C", build, "-t", "commands", program], stdout=subprocess.PIPE, check=True, text=True)
    command = re.sub(r"^: && | && :.*$", "", listed.stdout.splitlines()[-1])
    command = re.sub(r"--out-implib,\S+", f"--out-implib,{work}/implib.a", command)
    command = re.sub(r" -o \S+", f" -Wl,-Map={work}/map -o {work}/{os.path.basename(program)}", command)
    subprocess.run(command, cwd=build, shell=True, check=True)
    with open(f"{work}/map", encoding="utf-8", errors="replace") as file:
        text = file.read()
    members = re.findall(r"^(\S+\.a)\(", text[:text.index("Memory Configuration")], re.M)
    objects = re.findall(r"^LOAD (\S+\.(?:o|obj|res))$", text, re.M)
    return {os.path.normpath(path) for path in members + objects}


def components_of(path):
    for pattern, component in FILES:
        if re.search(pattern, path):
            return {component} - {None}
    return {f"unknown: {path}"}


def by_name(build, program):
    tool = f"{MINGW}-nm" if program.endswith((".dll", ".exe")) else "nm"
    names = subprocess.run([tool, "-C", os.path.join(build, program)], stdout=subprocess.PIPE, check=True, text=True).stdout
    return {component for component, pattern in NAMES.items() if re.search(pattern, names)}


def billed(build, program, work):
    subprocess.run([os.path.join(ROOT, "scripts", "sbom"), os.path.join(build, program), f"{work}/bill.json"], check=True)
    with open(f"{work}/bill.json", encoding="utf-8") as file:
        bill = json.load(file)
    packages = {package["SPDXID"]: package for package in bill["packages"]}
    found = [packages[each["relatedSpdxElement"]] for each in bill["relationships"] if each["relationshipType"] == "STATIC_LINK"]
    for package in found:
        if not package["versionInfo"] or not package["licenseDeclared"] or not package["externalRefs"][0]["referenceLocator"]:
            sys.exit(f"sbom_check: {package['name']} is not fully described")
    return {package["name"] for package in found}


def unnoticed(components):
    """What is amiss in the third-party notices, for each of the components."""
    with open(os.path.join(ROOT, "THIRD-PARTY-NOTICES.md"), encoding="utf-8") as file:
        lines = [line.strip("| \n").split(" | ") for line in file if line.startswith("| ")]
    for name in sorted(components):
        versions = [line[1] for line in lines if line[0].startswith(COMPONENTS[name].get("notice", name))]
        version = described(name)["version"]
        if not versions:
            yield f"{name} is not in THIRD-PARTY-NOTICES.md"
        elif not re.match(rf"(\d+:)?{re.escape(versions[0])}\b", version):
            yield f"{name} is of version {version}, and of {versions[0]} in THIRD-PARTY-NOTICES.md"


def main():
    build = os.path.abspath(sys.argv[1])
    system = "Windows" if os.path.exists(os.path.join(build, "bin", "ZelkApi64.dll")) else "Linux"
    work = os.path.abspath(sys.argv[2] if len(sys.argv) > 2 else os.path.join(build, "bill"))
    os.makedirs(work, exist_ok=True)
    failed = False
    everything = set()
    for program in PROGRAMS[system]:
        taken = set().union(*map(components_of, link_map(build, program, work))) | by_name(build, program)
        bill = billed(build, program, work)
        everything |= bill
        for fault, names in (("is in it and not in its bill", taken - bill), ("is in its bill and not in it", bill - taken)):
            for name in sorted(names):
                print(f"sbom_check: {program}: {name} {fault}", file=sys.stderr)
                failed = True
        print(f"{program}: {', '.join(sorted(bill))}")
    for fault in unnoticed(everything):
        print(f"sbom_check: {fault}", file=sys.stderr)
        failed = True
    sys.exit(failed)


main()
