# SPDX-License-Identifier: GPL-2.0-only
"""What comes from elsewhere, and which of our programs has it in itself. Versions and checksums of what is built along are
those of deps/; those of the build machine's packages are asked of its package database."""
import os
import re
import subprocess

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
POOL = "https://deb.debian.org/debian/pool/main"
RUNTIME = "GPL-3.0-or-later WITH GCC-exception-3.1"

# name: licence, either the pinned tarball with its folder in the archive or the package that has it, and how its line in
# THIRD-PARTY-NOTICES.md begins, where that is not the name.
COMPONENTS = {
    "libpri": {"licence": "GPL-2.0-only", "pinned": "libp/libpri"},
    "spandsp": {"licence": "LGPL-2.1-only", "pinned": "s/spandsp"},
    "libsndfile": {"licence": "LGPL-2.1-or-later", "pinned": "libs/libsndfile"},
    "libpcap": {"licence": "BSD-3-Clause", "pinned": "libp/libpcap"},
    "pugixml": {"licence": "MIT", "pinned": "p/pugixml"},
    "asio": {"licence": "BSL-1.0", "package": "libasio-dev", "notice": "Asio"},
    "CLI11": {"licence": "BSD-3-Clause", "package": "libcli11-dev"},
    "nlohmann-json": {"licence": "MIT", "package": "nlohmann-json3-dev", "notice": "JSON for Modern C++"},
    "toml11": {"licence": "MIT", "package": "libtoml11-dev"},
    "fmt": {"licence": "MIT", "package": "libfmt-dev", "notice": "{fmt}"},
    "libgcc": {"licence": RUNTIME, "package": "libgcc-12-dev", "notice": "GCC run-time library libgcc"},
    "glibc": {"licence": "LGPL-2.1-or-later", "package": "libc6-dev", "notice": "GNU C library"},
    "libstdc++-mingw": {"licence": RUNTIME, "package": "g++-mingw-w64-x86-64-posix", "notice": "GCC run-time library libstdc++"},
    "libgcc-mingw": {"licence": RUNTIME, "package": "gcc-mingw-w64-x86-64-posix", "notice": "GCC run-time library libgcc"},
    "mingw-w64": {"licence": "ZPL-2.1 AND MIT", "package": "mingw-w64-x86-64-dev"},
    "winpthreads": {"licence": "MIT AND BSD-3-Clause", "package": "mingw-w64-x86-64-dev"},
}

# Of the Linux programs what every one has: the start files of the C library and the compiler's own routines.
LINUX = ("glibc", "libgcc")
WINDOWS = ("libstdc++-mingw", "libgcc-mingw", "mingw-w64", "winpthreads")
LINKED = {
    "libZelkApi-64.so": ("libpri", "spandsp", *LINUX),
    "zelk-cardsim": ("libpri", "asio", "CLI11", "nlohmann-json", "toml11", *LINUX),
    "zelk-doctor": ("CLI11", "fmt", "nlohmann-json", *LINUX),
    "zelk-phone": ("CLI11", "nlohmann-json", *LINUX),
    "zelk-replay": ("libpri", "spandsp", "CLI11", "fmt", *LINUX),
    "zelk-extcap": ("CLI11", "fmt", *LINUX),
    "zelk-trace": ("CLI11", "fmt", "nlohmann-json", *LINUX),
    "libzelkqueue.so": LINUX,
    "ZelkApi64.dll": ("libpri", "spandsp", *WINDOWS),
    "zelk-cardsim.exe": ("libpri", "libsndfile", "asio", "CLI11", "nlohmann-json", "toml11", *WINDOWS),
    "zelk-doctor.exe": ("CLI11", "fmt", "libpcap", "nlohmann-json", *WINDOWS),
    "zelk-phone.exe": ("CLI11", "nlohmann-json", *WINDOWS),
    "zelk-trace.exe": ("CLI11", "fmt", "libpcap", "libsndfile", "nlohmann-json", "pugixml", *WINDOWS),
    "zelkqueue.dll": WINDOWS,
    "zelk-decode-capture": (),  # a script
    # Archives for linkers: they name what is in the DLL.
    "libZelkApi64.dll.a": (),
    "libzelkqueue.dll.a": (),
    "ZelkApi64.lib": (),
}


def pinned_versions():
    """name: (version in the distribution, file, SHA-256), of the tarballs that deps/ fetches."""
    with open(os.path.join(ROOT, "deps", "fetch"), encoding="utf-8") as file:
        wanted = re.findall(r"^want (\S+) (\w+)=(\S+)$", file.read(), re.M)
    with open(os.path.join(ROOT, "deps", "CMakeLists.txt"), encoding="utf-8") as file:
        text = file.read()
    sums = dict(re.findall(r"set\(\w+_tarball \$\{ZELK_DEPS_DIR\}/(\S+)\)\n\s*set\(\w+_sha256 (\w+)\)", text))
    return {name: (version, tarball, sums[tarball]) for tarball, name, version in wanted}


def package_version(package):
    """The version of an installed package of the build machine; None where it has none."""
    done = subprocess.run(["dpkg-query", "-W", "-f", "${Version}", package], stdout=subprocess.PIPE, stderr=subprocess.DEVNULL,
                          text=True, check=False)
    return done.stdout or None


def described(name):
    """A component's licence, version, purl, place and checksum; the last two None for the machine's own packages."""
    component = COMPONENTS[name]
    if "pinned" in component:
        version, tarball, checksum = pinned_versions()[name]
        return {"licence": component["licence"], "version": re.sub(r"-[^-]*$", "", version),
                "purl": f"pkg:deb/debian/{name}@{version.replace('+', '%2B')}?arch=source",
                "place": f"{POOL}/{component['pinned']}/{tarball}", "checksum": checksum}
    version = package_version(component["package"])
    if version is None:
        raise SystemExit(f"sbom: {component['package']} is not installed, so the version of {name} is not known")
    purl = f"pkg:deb/debian/{component['package'].replace('+', '%2B')}@{version.replace('+', '%2B').replace(':', '%3A')}"
    return {"licence": component["licence"], "version": version, "purl": purl, "place": None, "checksum": None}


def linked(path):
    """The components in one of our programs or libraries; None for a file that is none."""
    name = os.path.basename(path)
    if name in LINKED:
        return LINKED[name]
    if re.search(r"\.(so|dll|exe|a|lib)$", name) or "/bin/" in path:
        raise SystemExit(f"sbom: what is linked into {name} is not stated in scripts/bill/components.py")
    return None
