"""Every function through which the toolbox could reach the PC passes through the virtual board.

What the executable, librigcore and the libraries that it loads on need import is either defined by
libvboard.so or stands in imports_not_wrapped.txt with the reason why it need not be. A new import
fails here until somebody decides which of the two it is.
"""

import fnmatch
import os
import pathlib
import re
import subprocess

import pytest

from conftest import word_size

NOT_WRAPPED = pathlib.Path(__file__).with_name("imports_not_wrapped.txt")

# The C library itself is what the virtual board stands in front of.
C_LIBRARY = re.compile(r"(libc|libm|libpthread|librt|libdl|ld-linux.*)\.so")


def read_reasons(text):
    """{name or pattern: reason}. A paragraph is a reason ("# ...") with the names below it."""
    reasons = {}
    for paragraph in re.split(r"\n\s*\n", text):
        lines = paragraph.strip().splitlines()
        reason = " ".join(line.lstrip("# ") for line in lines if line.startswith("#"))
        names = " ".join(line for line in lines if not line.startswith("#")).split()
        for name in names:
            assert reason, f"{name} has no reason"
            assert name not in reasons, f"{name} stands twice"
            reasons[name] = reason
    return reasons


def undecided(imported, wrapped, reasons):
    """The imports that nobody has decided about, in order."""

    def is_decided(name):
        return name in wrapped or any(fnmatch.fnmatchcase(name, one) for one in reasons)

    return sorted(name for name in imported if not is_decided(name))


def symbols(file, which):
    listed = subprocess.run(
        ["nm", "-D", f"--{which}-only", "--format=posix", file],
        capture_output=True,
        text=True,
        check=True,
    ).stdout
    return {re.sub(r"@.*", "", line.split()[0]) for line in listed.splitlines() if line.strip()}


def needed(file):
    listed = subprocess.run(
        ["readelf", "-d", "-W", file], capture_output=True, text=True, check=True
    ).stdout
    return re.findall(r"\(NEEDED\)\s+Shared library: \[([^\]]+)\]", listed)


def installed_libraries():
    """{soname: file} of the libraries that the loader finds by themselves."""
    sysroot = os.environ.get("BENCHRIG_SYSROOT")
    if sysroot:
        return {
            file.name: file
            for folder in ("lib", "usr/lib")
            for file in (pathlib.Path(sysroot) / folder).glob("*/lib*.so*")
        }
    for ldconfig in ("/sbin/ldconfig", "ldconfig"):
        try:
            listed = subprocess.run(
                [ldconfig, "-p"], capture_output=True, text=True, check=True
            ).stdout
        except OSError:
            continue
        found = {}
        for name, file in re.findall(r"^\s+(\S+) \([^)]*\) => (\S+)$", listed, re.MULTILINE):
            found.setdefault(name, file)
        return found
    pytest.fail("no ldconfig to find libraries with")


def loaded_on_need(file):
    """The sonames that a library can hand to dlopen(): they stand in it as texts."""
    data = pathlib.Path(file).read_bytes()
    return {
        name.decode()
        for name in re.findall(rb"(?<=\0)lib[A-Za-z0-9_+.-]+\.so(?:\.\d+)*(?=\0)", data)
    }


@pytest.fixture(scope="module")
def libraries(build):
    """{file: name} of everything that runs in the toolbox's process, without the C library."""
    installed = installed_libraries()
    files = {build / "bin/benchrig": "benchrig", build / "lib/librigcore.so": "librigcore.so"}
    waiting = [
        *needed(build / "bin/benchrig"),
        *needed(build / "lib/librigcore.so"),
        *loaded_on_need(build / "lib/librigcore.so"),
    ]
    seen = {"librigcore.so"}
    while waiting:
        name = waiting.pop()
        if (
            name in seen
            or C_LIBRARY.match(name)
            or re.match(r"lib([atl]san|ubsan|gcov|gcc_s|stdc\+\+)\.so", name)
        ):
            continue
        seen.add(name)
        # dlopen() of a name of the library's own dynamic section finds nothing to load.
        if name not in installed:
            pytest.fail(f"{name} is loaded on need but is not installed")
        files[pathlib.Path(installed[name])] = name
        waiting += needed(installed[name])
    return files


@pytest.fixture(scope="module")
def wrapped(build):
    return symbols(build / "lib/libvboard.so", "defined")


@pytest.fixture(scope="module")
def reasons():
    return read_reasons(NOT_WRAPPED.read_text(encoding="utf-8"))


def test_every_import_is_wrapped_or_need_not_be(libraries, wrapped, reasons):
    own = set()
    for file in libraries:
        own |= symbols(file, "defined")
    open_ends = {}
    for file, name in libraries.items():
        for one in undecided(symbols(file, "undefined") - own, wrapped, reasons):
            open_ends.setdefault(one, []).append(name)
    assert (
        open_ends == {}
    ), "neither wrapped by libvboard.so nor reasoned in imports_not_wrapped.txt"


def test_the_library_of_the_u_boot_environment_is_among_those_looked_at(libraries):
    assert any(name.startswith("libubootenv.so") for name in libraries.values())


def test_the_imports_are_not_empty(libraries):
    # A test that reads nothing passes for the wrong reason.
    for file, name in libraries.items():
        assert symbols(file, "undefined"), name
    assert "ioctl" in symbols(next(iter(libraries)), "undefined")


def test_a_reasoned_name_is_not_wrapped_all_the_same(wrapped, reasons):
    # The reason says that it need not be: one of the two is out of date.
    assert sorted(name for name in reasons if "*" not in name and name in wrapped) == []


def test_a_new_import_is_undecided(wrapped, reasons):
    assert undecided({"memcpy", "open64", "io_uring_setup", "openat2"}, wrapped, reasons) == [
        "io_uring_setup",
        "openat2",
    ]


@pytest.mark.parametrize(
    "name",
    """
    open open64 __open_2 __open64_2 openat openat64 __openat_2 __openat64_2 creat creat64 close
    read __read_chk pread pread64 __pread_chk __pread64_chk readv preadv preadv64
    write pwrite pwrite64 writev pwritev pwritev64 lseek lseek64 ftruncate ftruncate64
    ioctl mmap mmap64 dup dup2 dup3 fcntl fcntl64
    fopen fopen64 freopen freopen64 fdopen opendir readdir readdir64 scandir scandir64 glob glob64
    stat stat64 lstat lstat64 fstat fstat64 fstatat fstatat64 statx access faccessat
    unlink unlinkat rename renameat mkdir mkdirat rmdir truncate truncate64 symlink link readlink realpath chmod
    tcgetattr tcsetattr tcflush isatty ttyname
    sleep usleep nanosleep clock_nanosleep select pselect poll __poll_chk ppoll __ppoll_chk
    epoll_wait epoll_pwait epoll_ctl alarm setitimer timer_settime pause
    pthread_cond_wait pthread_cond_timedwait pthread_cond_clockwait sem_wait sem_timedwait
    pthread_rwlock_timedrdlock pthread_rwlock_clockrdlock pthread_rwlock_timedwrlock pthread_rwlock_clockwrlock
    thrd_create thrd_join thrd_exit cnd_wait cnd_timedwait cnd_signal cnd_broadcast mtx_lock mtx_timedlock mtx_unlock
    timerfd_create timerfd_settime timerfd_gettime mq_send mq_timedsend mq_receive mq_timedreceive syscall
    accept accept4 getsockopt setsockopt
    time gettimeofday clock_gettime clock_settime settimeofday
    socket bind connect send sendto sendmsg recv recvfrom recvmsg __recv_chk
    mount umount umount2 reboot system popen vfork sched_setscheduler pthread_setschedparam
    """.split(),
)
def test_the_calls_that_a_program_of_the_board_may_make_are_wrapped(wrapped, name):
    # Independent of what the toolbox imports today.
    assert name in wrapped


@pytest.mark.skipif(
    word_size() != 4, reason="the names of 64-bit time are those of a 32-bit machine"
)
@pytest.mark.parametrize(
    "name",
    """
    __clock_gettime64 __gettimeofday64 __time64 __timespec_get64 __clock_settime64 __settimeofday64 __adjtime64
    ___adjtimex64 __clock_adjtime64 __nanosleep64 __clock_nanosleep_time64 __thrd_sleep64
    __select64 __pselect64 __ppoll64 __epoll_pwait2_time64 __sigtimedwait64
    __setitimer64 __getitimer64 __timer_settime64 __timer_gettime64
    __pthread_cond_timedwait64 __pthread_cond_clockwait64 __pthread_mutex_timedlock64 __pthread_mutex_clocklock64
    __pthread_timedjoin_np64 __pthread_clockjoin_np64 __sem_timedwait64 __sem_clockwait64
    __pthread_rwlock_timedrdlock64 __pthread_rwlock_clockrdlock64
    __pthread_rwlock_timedwrlock64 __pthread_rwlock_clockwrlock64
    __cnd_timedwait64 __mtx_timedlock64 __mq_timedsend_time64 __mq_timedreceive_time64
    __timerfd_settime64 __timerfd_gettime64
    __utime64 __utimes64 __lutimes64 __utimensat64
    __stat64_time64 __lstat64_time64 __fstat64_time64 __fstatat64_time64 __glob64_time64
    __ioctl_time64 __fcntl_time64 __recvmsg64 __sendmsg64 __getsockopt64 __setsockopt64
    """.split(),
)
def test_the_calls_with_64_bit_time_are_wrapped(wrapped, name):
    assert name in wrapped
