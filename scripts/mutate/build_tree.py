"""A copy of the tree and its builds: nothing here touches the checkout."""

import hashlib
import os
import pathlib
import shutil
import signal
import subprocess

PRODUCTS = ("src", "platform", "include", "vboard")
# What the cli tests take; the unit tests are linked on their own.
CLI_TARGETS = (
    "benchrig rigcore rigcore_standin vboard vboard_interposer plugin little_memory probe probe_plain"
).split()


class Failed(Exception):
    """A command of the tool itself failed; the text is its output."""


def run(words, cwd=None, timeout=None, env=None):
    """The exit status and the output of a command; the status is None when it took too long."""
    with subprocess.Popen(
        list(map(str, words)),
        cwd=cwd,
        env=env,
        stdin=subprocess.DEVNULL,
        stdout=subprocess.PIPE,
        stderr=subprocess.STDOUT,
        start_new_session=True,
    ) as process:
        try:
            output, _ = process.communicate(timeout=timeout)
            return process.returncode, output.decode(errors="replace")
        except subprocess.TimeoutExpired:
            end_all(process.pid)
            return None, ""
        except BaseException:
            end_all(process.pid)
            raise


def end_all(root):
    """Ends a process and all that it started, which may have sessions of their own."""
    parents = {}
    for stat in pathlib.Path("/proc").glob("[0-9]*/stat"):
        try:
            words = stat.read_text(encoding="utf-8", errors="replace").rpartition(")")[2].split()
        except OSError:
            continue
        parents.setdefault(int(words[1]), []).append(int(stat.parent.name))
    ending = [root]
    for process in ending:
        ending += parents.get(process, [])
    for process in ending:
        try:
            os.kill(process, signal.SIGKILL)
        except ProcessLookupError:
            pass


def must(words, **options):
    status, output = run(words, **options)
    if status != 0:
        raise Failed(f"{' '.join(map(str, words))}\n{output}")
    return output


def copy_tree(top, tree):
    """Makes `tree` a copy of the checkout's files; one that is equal keeps its time."""
    names = must(["git", "ls-files", "-co", "--exclude-standard", "-z"], cwd=top).split("\0")
    wanted = {name for name in names if name and os.path.lexists(top / name)}
    for name in wanted:
        source, copy = top / name, tree / name
        copy.parent.mkdir(parents=True, exist_ok=True)
        if source.is_symlink():
            copy.unlink(missing_ok=True)
            copy.symlink_to(os.readlink(source))
        elif not copy.is_file() or copy.read_bytes() != source.read_bytes():
            shutil.copyfile(source, copy)
            shutil.copymode(source, copy)
    for file in list(tree.rglob("*")):
        if not file.is_dir() and str(file.relative_to(tree)) not in wanted:
            file.unlink()


def hash_of(tree, wanted=lambda name: True):
    """A hash of the files whose names `wanted` takes."""
    total = hashlib.sha256()
    for file in sorted(tree.rglob("*")):
        name = str(file.relative_to(tree))
        if file.is_file() and "__pycache__" not in name and wanted(name):
            total.update(f"{name}\0{hashlib.sha256(file.read_bytes()).hexdigest()}\n".encode())
    return total.hexdigest()


def ninja(build, *targets, cores=2, cached=False):
    """The status and the output of a build of some targets."""
    env = dict(os.environ, CCACHE_NOHASHDIR="1", CCACHE_BASEDIR=str(build.parent))
    if not cached:
        env["CCACHE_DISABLE"] = "1"
    return run(["ninja", "-C", build, f"-j{cores}", *targets], env=env)


def make_build(tree, build, *options):
    """Configures and builds everything; most of it comes from the compiler cache."""
    build.mkdir(parents=True, exist_ok=True)
    must(["cmake", "-S", tree, "-B", build, "-G", "Ninja", *options])
    status, output = ninja(build, cached=True)
    if status != 0:
        raise Failed(output)


def python_with_pytest(build):
    for line in (build / "CMakeCache.txt").read_text(encoding="utf-8").splitlines():
        if line.startswith("BENCHRIG_PYTHON:"):
            return line.partition("=")[2]
    raise Failed(f"no BENCHRIG_PYTHON in {build}/CMakeCache.txt")


class Workshop:
    """A copy of the tree, its build, and a copy of the build to return to after each mutant."""

    def __init__(self, top, folder):
        self.tree, self.build = folder / "tree", folder / "build"
        self.pristine = folder / "pristine"
        self.top = top
        self.times = {}
        self.objects = {}

    def prepare(self):
        copy_tree(self.top, self.tree)
        # Without warnings: a mutant that only leaves something unused is one for the tests.
        make_build(self.tree, self.build, "-DCMAKE_BUILD_TYPE=Release", "-DCMAKE_CXX_FLAGS=-w")
        shutil.rmtree(self.pristine, ignore_errors=True)
        shutil.copytree(self.build, self.pristine, symlinks=True)
        self.times = {name: _time(self.pristine / name) for name in _files(self.pristine)}
        self.objects = self._objects_by_source()

    def _objects_by_source(self):
        objects, current = {}, None
        for line in must(["ninja", "-C", self.build, "-t", "deps"]).splitlines():
            if line and not line.startswith(" "):
                current = line.partition(":")[0]
            elif line.strip():
                source = pathlib.Path(os.path.normpath(self.build / line.strip()))
                if source.is_relative_to(self.tree):
                    objects.setdefault(str(source.relative_to(self.tree)), []).append(current)
        return objects

    def change(self, file, text):
        """Puts a mutant in place; returns what restore() takes."""
        path = self.tree / file
        before = path.read_bytes(), _time(path)
        path.write_bytes(text.encode())
        return path, *before

    def restore(self, changed):
        path, content, times = changed
        path.write_bytes(content)
        os.utime(path, ns=times)
        for name in _files(self.build):
            if name not in self.times:
                (self.build / name).unlink()
        for name, kept in self.times.items():
            file = self.build / name
            if not file.exists() or _time(file)[1] != kept[1]:
                # A program that still runs cannot be written, but its name can be taken.
                shutil.copy2(self.pristine / name, self.build / "restored")
                os.replace(self.build / "restored", file)

    def same_objects(self, objects):
        return all(
            (self.build / name).read_bytes() == (self.pristine / name).read_bytes()
            for name in objects
        )


def _files(folder):
    for parent, _, names in os.walk(folder):
        for name in names:
            path = os.path.join(parent, name)
            if not os.path.islink(path):
                yield os.path.relpath(path, folder)


def _time(path):
    status = os.stat(path)
    return status.st_atime_ns, status.st_mtime_ns
