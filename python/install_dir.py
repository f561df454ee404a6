"""Prints where, relative to an install prefix, this interpreter looks for
packages: lib/python3.X/dist-packages on Debian, .../site-packages elsewhere.
Used by python/CMakeLists.txt at configure time."""
import sys
import sysconfig

base = "/PREFIX"
path = sysconfig.get_path("purelib", "posix_prefix",
                          {"base": base, "platbase": base, "installed_base": base,
                           "installed_platbase": base})
rel = path[len(base) + 1:]
# Debian's interpreter reads <prefix>/lib/python3.X/dist-packages for the
# prefixes /usr and /usr/local, not site-packages.
if any(p.endswith("dist-packages") for p in sys.path):
    rel = rel.replace("site-packages", "dist-packages")
print(rel)
