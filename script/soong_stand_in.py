#!/usr/bin/env python3
"""Builds modules of Android.bp with this machine's clang, in the place of the platform tree's build.

  script/soong_stand_in.py FOLDER host|android MODULE

Prints the path of what MODULE became. It knows the properties that Android.bp uses and stops at any other, so
that a misspelt one is found here and not in a platform tree. What the tree adds of its own (its C library, its
C++ library, its default flags) is not simulated.
"""

import ast
import concurrent.futures
import glob
import os
import re
import subprocess
import sys

LISTS = {"cflags", "cppflags", "ldflags", "srcs", "exclude_srcs", "local_include_dirs", "export_include_dirs",
         "defaults", "shared_libs", "static_libs", "whole_static_libs"}
SCALARS = {"name", "cpp_std", "vendor", "host_supported", "version_script", "stl", "allow_undefined_symbols",
           "isolated"}
PLATFORM_LIBRARIES = {"libcutils", "liblog"}
GTEST = "/usr/src/googletest/googletest"
GMOCK = "/usr/src/googletest/googlemock"
COMPILER = {"host": ["clang++", "-O1"], "android": ["clang++", "--target=aarch64-linux-gnu"]}


def read_modules(path):
    """The language is close to that of Python's literals."""
    with open(path) as file:
        text = re.sub(r"^\s*//.*$", "", file.read(), flags=re.M)
    text = re.sub(r"\b(\w+):", r'"\1":', text)
    text = re.sub(r"\btrue\b", "True", re.sub(r"\bfalse\b", "False", text))
    modules = {}
    for kind, body in re.findall(r"^(\w+) (\{.*?^\})", text, flags=re.M | re.S):
        module = ast.literal_eval(body)
        modules[module["name"]] = {"kind": kind, **module}
    return modules


def merge(into, properties, variant):
    for name, value in properties.items():
        if name == "target":
            merge(into, value.get(variant, {}), variant)
        elif name in LISTS:
            into[name] = into.get(name, []) + value
        elif name in SCALARS or name == "kind":
            into[name] = value
        else:
            sys.exit(f"Android.bp: unknown property '{name}'")


class Build:
    def __init__(self, folder, variant):
        self.folder, self.variant = f"{folder}/{variant}", variant
        self.modules = read_modules("Android.bp")

    def flattened(self, name):
        module = {}
        for default in self.modules[name].get("defaults", []):
            merge(module, self.flattened(default), self.variant)
        merge(module, self.modules[name], self.variant)
        return module

    def run(self, command):
        if subprocess.run(command, stdout=sys.stderr).returncode != 0:
            raise SystemExit(f"Android.bp: failed: {' '.join(command)}")

    def compile(self, source, flags, name):
        made = f"{self.folder}/{name}/{source.replace('/', '_')}.o"
        os.makedirs(os.path.dirname(made), exist_ok=True)
        self.run(["ccache", *COMPILER[self.variant], *flags, "-fPIC", "-c", source, "-o", made])
        return made

    def sources(self, module):
        excluded = {name for pattern in module.get("exclude_srcs", []) for name in glob.glob(pattern, recursive=True)}
        found = []
        for pattern in module["srcs"]:
            matches = sorted(set(glob.glob(pattern, recursive=True)) - excluded)
            if not matches:
                sys.exit(f"Android.bp: no file matches '{pattern}'")
            found += matches
        return found

    def flags(self, module):
        flags = [f"-std={module['cpp_std']}"] + module["cflags"] + module.get("cppflags", [])
        folders = module.get("local_include_dirs", []) + module.get("export_include_dirs", [])
        for library in module.get("shared_libs", []) + module.get("whole_static_libs", []):
            if library not in PLATFORM_LIBRARIES:
                folders += self.flattened(library)["export_include_dirs"]
        # The platform's headers are global there; here the virtual phone's take their place.
        return flags + [f"-I{folder}" for folder in folders] + ["-idirafter", "phone/include"]

    def objects(self, module):
        flags = self.flags(module)
        if module["kind"] == "cc_test_host":
            flags += ["-isystem", f"{GTEST}/include"]
            for library in module.get("static_libs", []):
                if library != "libgmock":
                    sys.exit(f"Android.bp: nothing is known of '{library}'")
                flags += ["-isystem", f"{GMOCK}/include"]
        with concurrent.futures.ThreadPoolExecutor(2) as pool:
            jobs = [pool.submit(self.compile, s, flags, module["name"]) for s in self.sources(module)]
        return [job.result() for job in jobs]

    def shared(self, module, made):
        script = module["version_script"]
        driver = "clang" if self.variant == "host" else "aarch64-linux-gnu-gcc"
        self.run([driver, "-shared", f"-Wl,-soname,{module['name']}.so", f"-Wl,--version-script={script}",
                  *module["ldflags"], *self.objects(module), "-lm", "-o", made])

    def test(self, module, made):
        folders = [f"-I{folder}{part}" for folder in (GTEST, GMOCK) for part in ("", "/include")]
        gtest = [self.compile(f"{source}.cc", folders, "gtest")
                 for source in (f"{GTEST}/src/gtest-all", f"{GTEST}/src/gtest_main", f"{GMOCK}/src/gmock-all")]
        libraries = [self.make(library) for library in module["shared_libs"]]
        whole = [part for library in module["whole_static_libs"] for part in self.objects(self.flattened(library))]
        self.run(["clang++", *module["ldflags"], *self.objects(module), *whole, *gtest, *libraries,
                  f"-Wl,-rpath,{os.path.abspath(self.folder)}", "-ldl", "-o", made])

    def make(self, name):
        module = self.flattened(name)
        if module["kind"] == "cc_library_shared":
            made = f"{self.folder}/{name}.so"
            self.shared(module, made)
        else:
            made = f"{self.folder}/{name}.program"
            self.test(module, made)
        return made


if __name__ == "__main__":
    print(Build(sys.argv[1], sys.argv[2]).make(sys.argv[3]))
