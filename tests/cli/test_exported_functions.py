"""The functions that the executable exports to plug-ins: by name, callable, and nothing else.

tests/plugin/plugin.cpp is loaded into the unmodified executable and calls them there.
"""

import pathlib
import re
import signal
import subprocess

import pytest

import disk
from conftest import EMULATOR, program

EXPORTED = {
    "sata_command_execute",
    "sata_command_execute_esata",
    "ctoi",
    "hex_to_ascii",
    "korsata_read_ram",
    "korsata_modify_fw_identify",
    "korsata_download_microcode_cmd",
    "korsata_get_bin_fwver",
    "korsata_download_microcode",
    "korstore_analyse_identify_ssdwwn",
    "korstore_get_fw_tag",
    "korstore_compare_binfile",
}


def run_plugin(build, word):
    # A plain process: what the plug-in does ends before the program's main begins.
    return subprocess.run(
        program(build / "bin/benchrig"),
        capture_output=True,
        timeout=60,
        check=False,
        env={
            "LD_PRELOAD": str(build / "tests/plugin/plugin.so"),
            "BENCHRIG_PLUGIN": str(word),
            "ASAN_OPTIONS": "verify_asan_link_order=0:detect_leaks=0",
        },
    )


def test_exports_twelve_functions_and_nothing_else_of_its_own(build):
    names = subprocess.run(
        ["nm", "-D", "--defined-only", build / "bin/benchrig"],
        capture_output=True,
        check=True,
        text=True,
        timeout=60,
    ).stdout
    if "__asan_" in names or "__tsan_" in names or "__ubsan_" in names:
        pytest.skip("a sanitizer's run time exports its own")
    # Versioned names are libc's variables (stdout, optarg), which the linker may copy here.
    own = {tuple(line.split()[-2:]) for line in names.splitlines() if "@" not in line}
    assert own == {("T", name) for name in EXPORTED}


def test_headers_declare_what_is_exported():
    include = pathlib.Path(__file__).parents[2] / "include/benchrig"
    declared = set()
    for header in include.glob("*.h"):
        text = re.sub(r"/\*.*?\*/", "", header.read_text(), flags=re.S)
        declared |= set(re.findall(r"BENCHRIG_EXPORT\s+[a-z0-9_]+\s+\*?(\w+)\s*\(", text))
    assert declared == EXPORTED


def test_a_plug_in_finds_and_calls_all_of_them(build):
    run = run_plugin(build, "all")
    assert (run.returncode, run.stderr) == (0, b"")
    assert run.stdout == (
        b"ctoi 15 55\n"
        b"hex_to_ascii F\n"
        b"Unrecognized command 215\n"
        b"sata_command_execute -1\n"
        b"sata_command_execute -1\n"
        b"vailable scsi_cmnd_io\n"
        b"sata_command_execute_esata -1\n"
        b"sata command 0x86 return -1\n"
        b"sata_command_execute_esata -1\n"
        b"korsata_modify_fw_identify 0\n"
        b"korsata_get_bin_fwver ABCDEFG2 4246\n"
        b"korstore_analyse_identify_ssdwwn 0 5001B448A1B2C3D4\n"
        b"korstore_get_fw_tag 0 2 42\n"
        b"korstore_compare_binfile -25\n"
        b"device name is NULL\n"
        b"korsata_download_microcode_cmd -1\n"
        b"sata[/none] checksum fail!\n"
        b"korsata_download_microcode -1\n"
        b"open /none failed\n"
        b"enable_vendor error errno = 2\n"
        b"open /none failed\n"
        b"enable_vendor write errno = 2\n"
        b"korsata_read_ram -1\n"
    )


@pytest.mark.parametrize("code", [208, 209, 236, 210, 212, 136])
def test_null_argument_aborts(build, code):
    run = run_plugin(build, code)
    assert run.returncode == -signal.SIGABRT
    assert run.stdout == b""
    # An emulator reports the death of its program with a line of its own.
    emulator = rb"qemu: uncaught target signal 6 .*\n" if EMULATOR else rb""
    # Which line of the source it is may change.
    assert re.fullmatch(
        rb"benchrig: app/test/ssdupgrade/ssdupgrade:[1-9][0-9]*: sata_command_execute_esata: "
        rb"Assertion `arg!=NULL' failed\.\n" + emulator,
        run.stderr,
    )


@pytest.mark.parametrize(
    "code, text", [(134, b""), (146, b""), (213, b"vailable scsi_cmnd_io\n")]  # sic
)
def test_other_codes_do_not_abort(build, code, text):
    run = run_plugin(build, code)
    assert run.returncode == 0
    assert run.stdout == text + b"%d returned -1\n" % code
    assert run.stderr == b""


def test_a_plug_in_leaves_a_run_that_it_was_not_meant_for_alone(build):
    run = subprocess.run(
        [*program(build / "bin/benchrig"), "version"],
        capture_output=True,
        timeout=60,
        check=False,
        env={
            "LD_PRELOAD": str(build / "tests/plugin/plugin.so"),
            "ASAN_OPTIONS": "verify_asan_link_order=0:detect_leaks=0",
        },
    )
    assert run.returncode == 0
    assert b"benchrig v" in run.stdout


# --- on the virtual board's disk ------------------------------------------------------------------


def on_disk(board):
    """What the plug-in's calls on /dev/sda print: {"hdio 208": "0 SUM"}, and the whole output."""
    disk.keep_log(board)
    # The plug-in's constructor may come before the interposer's, too early for jumping time.
    run = board.run(
        speed="1",
        env={
            "LD_PRELOAD": str(board.build / "tests/plugin/plugin.so"),
            "BENCHRIG_PLUGIN": "/dev/sda",
        },
    )
    assert (run.status, run.stderr) == (0, b"")
    results = {}
    for line in run.stdout.decode().splitlines():
        words = line.split()
        if words[0] in ("hdio", "sg"):
            results[f"{words[0]} {words[1]}"] = " ".join(words[2:])
    return results, run.stdout


def sum_of(sector):
    total = 0
    for byte in sector:
        total = (total * 31 + byte) & 0xFFFF
    return f"{total:04x}"


def test_commands_of_both_transports(board):
    results, _ = on_disk(board)
    assert disk.commands(board) == [
        "HD b0 00 d0 01 512",
        "HD b0 01 d1 01 512",
        "HD b0 d2 00 00 4f c2 00 0",
        "HD b0 00 d4 00 0",
        "HD b0 00 d5 01 512",
        "HD b0 01 d8 00 0",
        "HD b0 01 d9 00 0",
        "HD b0 01 d8 00 0",
        "HD b0 da 00 00 4f c2 00 0",
        "HD b0 db 00 00 4f c2 00 0",
        "HD e0 00 00 00 0",
        "HD e7 00 00 00 0",
        "HD ec 00 00 01 512",
        "SG 85 08 0e 00 d0 00 00 00 01 00 4f 00 c2 40 b0 00 512",
        "SG 85 08 0e 00 d1 00 00 00 01 00 4f 00 c2 40 b0 00 512",
        "SG 85 06 20 00 d2 00 00 00 01 00 4f 00 c2 40 b0 00 0",
        "SG 85 06 20 00 d4 00 00 00 01 00 4f 00 c2 40 b0 00 0",
        "SG 85 06 20 00 d8 00 00 00 01 00 4f 00 c2 40 b0 00 0",
        "SG 85 06 20 00 d9 00 00 00 01 00 4f 00 c2 40 b0 00 0",
        "SG 85 06 20 00 d8 00 00 00 01 00 4f 00 c2 40 b0 00 0",
        "SG 85 08 0e 00 da 00 00 00 01 00 4f 00 c2 40 b0 00 8",
        "SG 85 06 20 00 00 00 00 00 00 00 00 00 00 00 e0 00 0",
        "SG 85 06 20 00 00 00 00 00 00 00 00 00 00 00 e7 00 0",
        "SG 85 08 0e 00 00 00 00 00 00 00 00 00 00 00 ec 00 512",
        "SG a1 06 20 da 41 00 00 00 40 ef 00 00 0",
    ]
    values = "0 " + sum_of(disk.medium(board, "sda.smart_values"))
    thresholds = "0 " + sum_of(disk.medium(board, "sda.smart_thresholds"))
    identify = "0 " + sum_of(disk.medium(board, "sda.identify"))
    assert [results[f"{transport} 208"] for transport in ("hdio", "sg")] == [values, values]
    assert [results[f"{transport} 209"] for transport in ("hdio", "sg")] == [thresholds, thresholds]
    assert [results[f"{transport} 236"] for transport in ("hdio", "sg")] == [identify, identify]
    # This kernel has no task file requests, this drive no logs.
    assert [results[f"hdio {code}"] for code in (0, 213, 214)] == ["-1 0000"] * 3
    for code in (210, 212, 216, 217, 218, 219, 224, 231):
        assert results[f"hdio {code}"] == "0 0000"
    for code in (210, 212, 216, 217, 224, 231, 239):
        assert results[f"sg {code}"] == "0 0000"
    assert results["sg 218"] == "1 0000"


def test_threshold_exceeded(board):
    board.set("/dev/sda", "smart_exceeded", 1)
    results, _ = on_disk(board)
    assert results["hdio 218"] == "1 0000"
    assert results["sg 218"] == "2 0000"


def test_a_status_that_is_neither(board):
    # The drive takes the command and leaves other values in its registers.
    board.set("/dev/sda", "smart_status", 0x1234)
    results, output = on_disk(board)
    assert results["hdio 218"] == "-1 0000"
    assert (
        b"Error SMART Status command failed\n"
        b"Register values returned from SMART Status command are:\n"
        b"ST =0x50\nERR=0x00\nNS =0x00\nSC =0x00\nCL =0x34\nCH =0x12\nSEL=0x00\n"
        b"hdio 218 -1 0000\n"
    ) in output


def test_a_refused_status(board):
    board.set("/dev/sda", "aborts", "b0/da")
    results, output = on_disk(board)
    assert b"Error SMART Status command failed\nhdio 218 -1 0000\n" in output
    assert results["sg 218"] == "3 0000"  # nothing came back


def test_a_wrong_checksum_is_reported_and_the_sector_counts(board):
    sector = disk.medium(board, "sda.smart_values")
    disk.change(board, "sda.smart_values", 510, bytes([sector[510] ^ 0xFF]))
    results, output = on_disk(board)
    assert b"Invalid checksum of SMART data.\nsg 208 0 " in output
    assert output.count(b"Invalid checksum") == 1  # the other transport does not look
    changed = sum_of(disk.medium(board, "sda.smart_values"))
    assert results["sg 208"] == results["hdio 208"] == "0 " + changed


@pytest.mark.parametrize(
    "status, text",
    [
        (4, b" BAD target. \n"),
        (5, b"Abort for some other reason. \n"),
        (14, b"BUS stayed busy through time out period. \n"),
        (15, b"BUS stayed busy through time out period. \n"),
    ],
)
def test_status_of_the_host_adapter(board, status, text):
    board.set("/dev/sda", "host_status", status)
    results, output = on_disk(board)
    assert {result for call, result in results.items() if call.startswith("sg ")} == {
        f"{status} 0000"
    }
    assert output.count(text) == 12


@pytest.mark.parametrize("status", [1, 3, 13])
def test_other_statuses_of_the_host_adapter_are_not_told(board, status):
    board.set("/dev/sda", "host_status", status)
    results, _ = on_disk(board)
    assert results["sg 224"] == "0 0000"


def test_a_positive_result_is_handed_on_with_what_was_read(board):
    board.fault("/dev/sda ioctl:SG_IO result=7")
    results, _ = on_disk(board)
    for code, name in ((208, "smart_values"), (209, "smart_thresholds"), (236, "identify")):
        assert results[f"sg {code}"] == "7 " + sum_of(disk.medium(board, "sda." + name))
    for code in (210, 212, 216, 217, 224, 231, 239):
        assert results[f"sg {code}"] == "7 0000"
    assert results["sg 218"] == "1 0000"  # the answer of this command is another


def test_failed_requests(board):
    board.fault("/dev/sda ioctl errno=EIO")
    results, output = on_disk(board)
    assert set(results.values()) == {"-1 0000"}
    assert disk.commands(board) == []
    for code in (208, 209, 210, 212, 216, 217, 218, 224, 231, 236, 239):
        assert b"sata command %#x return -1\nsg %d -1 0000\n" % (code, code) in output


# --- the parts of the firmware update -------------------------------------------------------------


def run_part(board, word, image=None):
    """What a part of the update prints; `image` is the plug-in's image.bin."""
    work = board.scratch / "plugin"
    work.mkdir(exist_ok=True)
    if image is not None:
        (work / "image.bin").write_bytes(image)
    run = board.run(
        speed="1",
        cwd=work,
        env={
            "LD_PRELOAD": str(board.build / "tests/plugin/plugin.so"),
            "BENCHRIG_PLUGIN": word,
        },
    )
    assert (run.status, run.stderr) == (0, b"")
    return run.stdout


HOST_STATUS = {
    1: b"",
    3: b"",
    4: b" BAD target. \n",
    5: b"Abort for some other reason. \n",
    14: b"BUS stayed busy through time out period. \n",
    15: b"BUS stayed busy through time out period. \n",
}


def ram_sums(board, sectors):
    ram = bytes(disk.tag_block(board)[: sectors * 512]).ljust(4096, b"\0")
    return " ".join(sum_of(ram[at : at + 512]) for at in range(0, 4096, 512)).encode()


@pytest.mark.parametrize("status", HOST_STATUS)
def test_memory_that_did_not_come_reads_as_zeros(board, status):
    board.set("/dev/sda", "host_status", status)
    told = 0 if status < 4 else status
    assert run_part(board, "ram:/dev/sda") == (
        3 * HOST_STATUS[status]  # vendor mode, announcement, fetch
        + b"korsata_read_ram 0 "
        + ram_sums(board, 0)
        + b"\n"
        + 2 * HOST_STATUS[status]
        + b"sata_command_execute_esata %d " % told
        + ram_sums(board, 0)
        + b"\n"
    )


@pytest.mark.parametrize("sectors", [8, 3])
def test_a_short_transfer_ends_in_zeros(board, sectors):
    board.set("/dev/sda", "vendor_mode", 1)
    board.set("/dev/sda", "transfer_limit", sectors * 512)
    sums = ram_sums(board, sectors)
    assert run_part(board, "ram:/dev/sda") == (
        b"korsata_read_ram 0 " + sums + b"\nsata_command_execute_esata 0 " + sums + b"\n"
    )


@pytest.mark.parametrize("size", [1, 511, 512, 513, 5000, 16384, 20001])
def test_download_sends_whole_blocks_out_of_the_callers_buffer(board, size):
    disk.keep_log(board)
    board.set("/dev/sda", "firmware_size", 1 << 30)  # the drive waits for more
    image = bytes(i % 251 for i in range(size))
    assert run_part(board, "send:/dev/sda", image) == b"send 0\n"
    assert disk.commands(board) == disk.chunks(size)
    assert disk.medium(board, "sda.firmware") == image + b"\xa5" * (-size % 512)


@pytest.mark.parametrize("size", [5177, 8193, 16384])
def test_guarded_update_sends_whole_blocks_out_of_the_callers_buffer(board, size):
    board.set("/dev/sda", "firmware_size", 1 << 30)
    image = disk.make_image(board, size)
    assert run_part(board, "update:/dev/sda", image) == b"update 0\n"
    expected = disk.stamped(image, b"QXFW01A3") + b"\xa5" * (-size % 512)
    assert disk.medium(board, "sda.firmware") == expected


def test_guarded_update_reads_a_short_images_tag_out_of_the_callers_buffer(board):
    # The tag's variant value lies at 5136, beyond the image's end: the buffer holds A5h there.
    board.set("/dev/sda", "firmware_size", 1 << 30)
    image = disk.make_image(board, 5000)
    assert run_part(board, "update:/dev/sda", image) == (
        b"sata[/dev/sda] bin file compaer fail!\nupdate -2\n"
    )
    disk.change(board, "sda.ram", 1040, b"\xa5" * 4)
    assert run_part(board, "update:/dev/sda", image) == b"update 0\n"
    assert disk.medium(board, "sda.firmware")[5000:] == b"\xa5" * 120
