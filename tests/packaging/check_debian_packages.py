#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Builds the Debian packages of a build tree with cpack and checks them as a
packager would: their control fields (dpkg-deb -I), their contents, an
install with dpkg into a fresh root with a database of its own, and a
consumer built and run against the -dev package's files in that root.

  check_debian_packages.py BUILD_DIR WORK_DIR VERSION CONSUMER_DIR CXX [EXTRA_FLAGS]

Dependencies on packages that are not built here (libc6, Qt Core, ...) must
each name a package installed on this machine in a version that satisfies
them; their entries in the machine's dpkg database are copied into the
fresh root's, so that dpkg checks every Depends line for real (ours
included) and no --force option is needed.
"""
import glob
import os
import re
import shutil
import subprocess
import sys

RELEASE = "1"


def run(command, **kwargs):
    result = subprocess.run(command, capture_output=True, text=True, **kwargs)
    if result.returncode != 0:
        raise SystemExit(f"failed: {' '.join(command)}\n{result.stdout}\n{result.stderr}")
    return result.stdout


def fields(deb):
    text = run(["dpkg-deb", "--field", deb])
    parsed = {}
    for match in re.finditer(r"^(\S+): ?(.*(?:\n .*)*)", text, re.M):
        parsed[match.group(1)] = match.group(2)
    return parsed


def relations(depends):
    """[(alternatives, as [(name, operator, version)])] of a Depends value."""
    parsed = []
    for entry in filter(None, (e.strip() for e in depends.split(","))):
        alternatives = []
        for alternative in entry.split("|"):
            match = re.match(r"^\s*([a-z0-9][a-z0-9+.-]+)(?::\S+)?\s*(?:\(\s*([<>=]+)\s*([^)\s]+)\s*\))?\s*$", alternative)
            if not match:
                raise SystemExit(f"unreadable Depends entry {entry!r}")
            alternatives.append(match.groups())
        parsed.append(alternatives)
    return parsed


def installed_version(name):
    query = subprocess.run(["dpkg-query", "-W", "-f", "${Status}\t${Version}", name], capture_output=True, text=True)
    if query.returncode != 0 or not query.stdout.startswith("install ok installed"):
        return None
    return query.stdout.split("\t")[1]


def satisfied(version, operator, wanted):
    return operator is None or subprocess.run(["dpkg", "--compare-versions", version, operator, wanted]).returncode == 0


def expect(condition, message, problems):
    if not condition:
        problems.append(message)


def check_packages(debs, version, problems):
    full = f"{version}-{RELEASE}"
    names = {
        "runtime": "libtetherhost-client1",
        "svf": "libtetherhost-svf1",
        "dev": "libtetherhost-client-dev",
        "tools": "tetherhost-tools",
        "doc": "tetherhost-doc",
    }
    expect(sorted(debs) == sorted(names.values()), f"packages built: {sorted(debs)}", problems)
    if problems:
        return names
    info = {name: fields(path) for name, path in debs.items()}
    contents = {name: run(["dpkg-deb", "--contents", path]) for name, path in debs.items()}
    for name, control in info.items():
        expect(control.get("Version") == full, f"{name}: Version {control.get('Version')}, expected {full}", problems)
        expect(f"./usr/share/doc/{name}/copyright" in contents[name], f"{name}: no copyright file", problems)
        expect(control.get("Maintainer"), f"{name}: no Maintainer", problems)
        expect(control.get("Description", "").count("\n") >= 1, f"{name}: no long description", problems)
    synopses = [control.get("Description", "").split("\n")[0] for control in info.values()]
    expect(len(set(synopses)) == len(info) and not any("CMake" in line for line in synopses),
           f"each package needs a synopsis of its own: {synopses}", problems)
    exact = f"(= {full})"
    depends = {name: control.get("Depends", "") for name, control in info.items()}
    expect(f"libtetherhost-client1 {exact}" in depends[names["dev"]], f"-dev Depends: {depends[names['dev']]}", problems)
    expect(f"libtetherhost-svf1 {exact}" in depends[names["dev"]], f"-dev Depends: {depends[names['dev']]}", problems)
    for user in ("svf", "tools"):
        expect(f"libtetherhost-client1 {exact}" in depends[names[user]],
               f"{names[user]} Depends: {depends[names[user]]}", problems)
    expect(f"libtetherhost-svf1 {exact}" in depends[names["tools"]], f"tools Depends: {depends[names['tools']]}",
           problems)
    # dpkg-shlibdeps ran: the C library and, for the client library, Qt Core.
    for name in (names["runtime"], names["svf"], names["tools"]):
        expect(re.search(r"\blibc6 \(>= ", depends[name]), f"{name}: no libc6 from dpkg-shlibdeps: {depends[name]}",
               problems)
    expect(re.search(r"\blibqt[56]core", depends[names["runtime"]]), f"runtime Depends: {depends[names['runtime']]}",
           problems)
    expect(info[names["doc"]].get("Architecture") == "all", "the doc package is not Architecture: all", problems)
    expect(info[names["runtime"]].get("Section") == "libs", "runtime Section", problems)
    expect(info[names["dev"]].get("Section") == "libdevel", "-dev Section", problems)
    for library in (names["runtime"], names["svf"]):
        control_files = run(["dpkg-deb", "--info", debs[library]])
        expect(re.search(r"^\s+\d+ bytes,\s+\d+ lines\s+shlibs\s*$", control_files, re.M),
               f"{library}: no shlibs control file", problems)
    for path in ("./usr/bin/tetherctl", "./usr/bin/tetherhost", "./usr/share/man/man1/tetherctl.1.gz",
                 "./usr/share/man/man1/tetherhost.1.gz", "./usr/share/bash-completion/completions/tetherctl"):
        expect(re.search(rf" {re.escape(path)}$", contents[names["tools"]], re.M), f"tools: no {path}", problems)
    expect("/usr/share/doc/tetherhost/examples/hello_log.cpp" in contents[names["doc"]], "doc: no examples", problems)
    for name, listing in contents.items():
        binaries = re.findall(r" \./usr/bin/(\S+)$", listing, re.M)
        expect(name == names["tools"] or not binaries, f"{name} installs programs: {binaries}", problems)
    expect(sorted(re.findall(r" \./usr/bin/(\S+)$", contents[names["tools"]], re.M)) == ["tetherctl", "tetherhost"],
           "tools: programs other than tetherctl and tetherhost", problems)
    return names


def fresh_root(root, system_packages):
    """A root with a dpkg database that knows the given system packages."""
    admin = os.path.join(root, "var/lib/dpkg")
    for folder in ("info", "updates", "triggers"):
        os.makedirs(os.path.join(admin, folder))
    stanzas = [run(["dpkg-query", "--status", name]).strip() for name in sorted(system_packages)]
    with open(os.path.join(admin, "status"), "w") as status:
        status.write("\n\n".join(stanzas) + ("\n\n" if stanzas else ""))
    open(os.path.join(admin, "available"), "w").close()


def add_script_runtime(root):
    """The shell and ldconfig of this machine (with the libraries the shell
    loads) in the root, so that dpkg can run the packages' maintainer
    scripts there, chrooted as it always does."""
    for program in ("/bin/sh", "/sbin/ldconfig"):
        files = [os.path.realpath(program)]
        loader = subprocess.run(["ldd", program], capture_output=True, text=True)
        if loader.returncode == 0:
            files += re.findall(r"(/\S+) \(0x", loader.stdout)
        for path in files:
            target = os.path.join(root, path.lstrip("/"))
            os.makedirs(os.path.dirname(target), exist_ok=True)
            shutil.copy2(os.path.realpath(path), target)
        link = os.path.join(root, program.lstrip("/"))
        if not os.path.exists(link):
            os.makedirs(os.path.dirname(link), exist_ok=True)
            os.symlink(os.path.realpath(program), link)
    os.makedirs(os.path.join(root, "etc"), exist_ok=True)


def dpkg(root, *arguments):
    return subprocess.run(["dpkg", f"--root={root}", "--log=/dev/null", *arguments], capture_output=True, text=True)


def main():
    build, work, version, consumer, cxx = sys.argv[1:6]
    extra = sys.argv[6].split() if len(sys.argv) > 6 else []
    shutil.rmtree(work, ignore_errors=True)
    os.makedirs(work)
    problems = []

    run(["cpack", "--config", os.path.join(build, "CPackConfig.cmake"), "-B", os.path.join(work, "packages")],
        cwd=build)
    debs = {fields(p)["Package"]: p for p in glob.glob(os.path.join(work, "packages", "*.deb"))}
    names = check_packages(debs, version, problems)
    if problems:
        raise SystemExit("\n".join(problems))

    # Every dependency outside our packages must be a package installed here.
    system = set()
    for name, path in debs.items():
        for alternatives in relations(fields(path).get("Depends", "")):
            if any(a[0] in debs for a in alternatives):
                continue
            found = [a for a in alternatives
                     if installed_version(a[0]) is not None and satisfied(installed_version(a[0]), a[1], a[2])]
            expect(found, f"{name} depends on {alternatives}, which no installed package satisfies", problems)
            system.update(a[0] for a in found[:1])
    if problems:
        raise SystemExit("\n".join(problems))

    # The -dev package alone does not install: dpkg holds it to its Depends.
    alone = os.path.join(work, "root-dev-alone")
    fresh_root(alone, system)
    refused = dpkg(alone, "--install", debs[names["dev"]])
    expect(refused.returncode != 0 and "depends on libtetherhost-client1" in refused.stderr,
           f"the -dev package installed without its libraries: {refused.returncode} {refused.stderr}", problems)

    root = os.path.join(work, "root")
    fresh_root(root, system)
    add_script_runtime(root)
    installed = dpkg(root, "--install", *sorted(debs.values()))
    if installed.returncode != 0:
        raise SystemExit(f"dpkg --install failed:\n{installed.stdout}\n{installed.stderr}")
    states = run(["dpkg-query", f"--admindir={root}/var/lib/dpkg", "-W", "-f", "${Package} ${Status}\n", *debs])
    for name in debs:
        expect(f"{name} install ok installed" in states, f"not installed: {name}\n{states}", problems)

    # The library packages' postinst ran ldconfig inside the root.
    cache = subprocess.run(["ldconfig", "-p", "-C", os.path.join(root, "etc/ld.so.cache")], capture_output=True,
                           text=True).stdout
    for library in ("libtetherhost_client.so.1", "libtetherhost_svf.so.1"):
        expect(f"\t{library} (" in cache, f"{library} is not in the root's ld.so.cache:\n{cache}", problems)

    # A host application built against the -dev package's files in the root.
    usr = os.path.join(root, "usr")
    pcs = glob.glob(os.path.join(usr, "lib", "**", "pkgconfig", "tetherhost_client.pc"), recursive=True)
    expect(len(pcs) == 1, f"pkg-config files in the root: {pcs}", problems)
    if problems:
        raise SystemExit("\n".join(problems))
    libdir = os.path.dirname(os.path.dirname(pcs[0]))
    environment = dict(os.environ, LD_LIBRARY_PATH=libdir, NLSPATH=os.path.join(usr, "share/tetherhost/nls/%N.cat"),
                       PKG_CONFIG_PATH=os.path.dirname(pcs[0]))
    flags = run(["pkg-config", "--cflags", "--libs", "tetherhost_client"], env=environment).split()
    program = os.path.join(work, "pkgconfig-consumer")
    run([cxx, "-std=c++11", "-Wall", "-Wextra", "-Werror", *extra, os.path.join(consumer, "main.cpp"), *flags,
         "-o", program])
    cmake_build = os.path.join(work, "cmake-consumer")
    run(["cmake", "-S", consumer, "-B", cmake_build, "-G", "Ninja", f"-DCMAKE_PREFIX_PATH={usr}",
         f"-DCMAKE_CXX_FLAGS={' '.join(extra)}", "-DCMAKE_CXX_STANDARD=20"])
    run(["cmake", "--build", cmake_build])
    for built in (program, os.path.join(cmake_build, "consumer")):
        output = run([built, os.path.join(work, "consumer.log")], env=environment)
        expect(output.endswith(f"\nbuilt against tetherhost {version}\n") and "consumer" in output,
               f"{built} printed {output!r}", problems)
    # The installed programs find the installed libraries by themselves.
    for tool in ("tetherctl", "tetherhost"):
        output = run([os.path.join(usr, "bin", tool), "--version"])
        expect(output == f"{tool} {version}\n", f"installed {tool} --version printed {output!r}", problems)

    for problem in problems:
        print(problem)
    if not problems:
        print(f"{len(debs)} packages built, checked, installed into a fresh root and consumed")
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
