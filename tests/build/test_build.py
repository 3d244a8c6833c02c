"""What a build leaves: the stamp, a reproducible executable, an installation that works."""

import os
import pathlib
import re
import subprocess

import pytest

ROOT = pathlib.Path(__file__).resolve().parents[2]
# 5 January 2024, 09:05:03 UTC: fields that a padded stamp would show with zeros.
EPOCH = "1704445503"


def run(*words, epoch=None, variables=None):
    """A command that must succeed; its standard output."""
    environment = {name: value for name, value in os.environ.items() if name != "SOURCE_DATE_EPOCH"}
    if epoch:
        environment["SOURCE_DATE_EPOCH"] = epoch
    environment.update(variables or {})
    done = subprocess.run(list(map(str, words)), capture_output=True, check=False, env=environment)
    assert done.returncode == 0, (words, done.stdout[-2000:], done.stderr[-2000:])
    return done.stdout


def configure(source, name, *options):
    """A build directory at the place that a preset's has: ccache then knows what the lane compiled."""
    build = source / "build" / name
    run(
        "cmake",
        "-S",
        source,
        "-B",
        build,
        "-G",
        "Ninja",
        "-DCMAKE_BUILD_TYPE=Release",
        "-DBENCHRIG_TESTS=OFF",
        *options,
    )
    return build


def build_all(build, *options, epoch=None, variables=None):
    ccache = {"CCACHE_BASEDIR": str(build.parents[1]), "CCACHE_NOHASHDIR": "1"}
    run("cmake", "--build", build, *options, epoch=epoch, variables={**ccache, **(variables or {})})


def build_benchrig(build, epoch=None, variables=None):
    build_all(build, "--target", "benchrig", epoch=epoch, variables=variables)
    return build / "bin/benchrig"


def stamp_of(benchrig):
    """The stamp that `version` prints: the last line's text behind "build "."""
    line = run(benchrig, "version").split(b"\n")[-2]
    return re.fullmatch(rb"benchrig v2\.0\.0 build (.*)\r", line).group(1)


@pytest.fixture(scope="module")
def source(tmp_path_factory):
    """A copy of the sources that a test may touch."""
    copy = tmp_path_factory.mktemp("tree") / "source"
    copy.mkdir()
    for name in ("CMakeLists.txt", "cmake", "include", "platform", "scripts", "src", "vboard"):
        run("cp", "-r", ROOT / name, copy / name)
    return copy


def test_source_date_epoch_fixes_the_stamp_and_any_later_build_stamps_anew(source):
    build = configure(source, "stamped")
    assert stamp_of(build_benchrig(build, EPOCH)) == b"2024-1-5 9:5:3"

    # Something else than the stamp's own source changes.
    (source / "src/board/beep.cpp").touch()
    later = stamp_of(build_benchrig(build))
    assert re.fullmatch(rb"20\d\d-\d{1,2}-\d{1,2} \d{1,2}:\d{1,2}:\d{1,2}", later)
    assert later != b"2024-1-5 9:5:3"


def test_two_builds_for_one_moment_are_equal_byte_for_byte(source):
    first = configure(source, "first")
    second = configure(source, "second")
    build_benchrig(first, EPOCH)
    # What ccache kept would be equal by itself.
    build_benchrig(second, EPOCH, {"CCACHE_DISABLE": "1"})
    assert (first / "bin/benchrig").read_bytes() == (second / "bin/benchrig").read_bytes()
    assert (first / "lib/librigcore.so").read_bytes() == (second / "lib/librigcore.so").read_bytes()


def multiarch():
    """The machine's own folder of libraries, as Debian lays it out."""
    return "lib/" + run("gcc", "-print-multiarch").decode().strip()


def files_below(folder):
    return {str(file.relative_to(folder)) for file in folder.rglob("*") if not file.is_dir()}


@pytest.fixture(scope="module", params=["lib", "debian", "far away"])
def built(request, source):
    """A build for one layout: (build, its folder of executables, its folder of libraries)."""
    folders = {
        "lib": ("bin", "lib", "share"),
        "debian": ("bin", multiarch(), "share"),
        "far away": ("libexec/factory/bin", "private/lib", "private/share"),
    }[request.param]
    options = [
        f"-DCMAKE_INSTALL_{name}={folder}"
        for name, folder in zip(("BINDIR", "LIBDIR", "DATADIR"), folders)
        if (name, folder) not in (("BINDIR", "bin"), ("LIBDIR", "lib"), ("DATADIR", "share"))
    ]
    name = request.param.replace(" ", "-")
    build = configure(source, name, "-DCMAKE_INSTALL_PREFIX=/usr", *options)
    build_all(build)
    return build, *folders


def on_a_virtual_board(folder):
    return run(
        folder / "vboard", "run", "--speed", "max", "--", folder / "benchrig", "bt1", "beep", "1"
    )


def test_a_build_runs_the_toolbox_on_a_virtual_board(built):
    assert on_a_virtual_board(built[0] / "bin") == b"open beep.\n"


def test_an_installation_runs_the_toolbox_on_a_virtual_board(built, tmp_path):
    build, bindir, libdir, datadir = built
    run("env", f"DESTDIR={tmp_path / 'image'}", "cmake", "--install", build, "--strip")
    # Neither the build nor the place that it was installed to is needed.
    prefix = tmp_path / "moved"
    (tmp_path / "image/usr").rename(prefix)
    hidden = build.with_name("hidden")
    build.rename(hidden)
    try:
        assert on_a_virtual_board(prefix / bindir) == b"open beep.\n"
    finally:
        hidden.rename(build)
    assert (prefix / libdir / "librigcore.so").is_file()
    assert (prefix / libdir / "vboard/libvboard.so").is_file()
    assert (prefix / datadir / "vboard/template/board").is_file()


def test_components_install_what_they_are_for(built, tmp_path):
    build, bindir, libdir, datadir = built
    kinds = {}
    for component in ("toolbox", "library", "vboard", "development"):
        run("cmake", "--install", build, "--prefix", tmp_path / component, "--component", component)
        kinds[component] = files_below(tmp_path / component)
    run("cmake", "--install", build, "--prefix", tmp_path / "all")

    assert kinds["toolbox"] == {f"{bindir}/benchrig"}
    assert kinds["library"] == {
        f"{libdir}/librigcore.so",
        f"{datadir}/benchrig/board.conf.example",
    }
    template = {
        f"{datadir}/vboard/template/{name}" for name in files_below(ROOT / "vboard/template")
    }
    assert kinds["vboard"] == {f"{bindir}/vboard", f"{libdir}/vboard/libvboard.so"} | template
    check = f"{datadir}/benchrig/check-platform-library.sh"
    assert kinds["development"] == {check} | {
        f"include/{name}" for name in files_below(ROOT / "include")
    }
    assert files_below(tmp_path / "all") == set().union(*kinds.values())


def test_the_installed_check_finds_the_headers_and_the_library(built, tmp_path):
    build, bindir, libdir, datadir = built
    for component in ("toolbox", "library", "development"):
        run("cmake", "--install", build, "--prefix", tmp_path, "--component", component)
    output = run(
        tmp_path / datadir / "benchrig/check-platform-library.sh",
        tmp_path / libdir / "librigcore.so",
        tmp_path / bindir / "benchrig",
    )
    assert b" offers all " in output


def test_the_toolbox_and_the_library_are_enough_for_a_board(built, tmp_path):
    build, bindir, *_ = built
    for component in ("toolbox", "library"):
        run("cmake", "--install", build, "--prefix", tmp_path, "--component", component)
    assert stamp_of(tmp_path / bindir / "benchrig")
