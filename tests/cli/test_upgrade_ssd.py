"""upgrade ssd: firmware update of the maker's SSDs, and everything that must stop it.

The drive is the virtual board's /dev/sda (tests/cli/disk.py tells what is assumed of it). What counts
in each test is the list of commands that the drive got: no DOWNLOAD MICROCODE before every check.
"""

import os

import pytest

import disk
from conftest import assert_story, is_instrumented, little_memory, out
from disk import READ_DRIVE, READ_RAM, chunk, chunks, make_image, stamped

OWN = b"This is korvexium sata[/dev/sda],will go to upgrade!\n"
FAILED_TWICE = b"sata[/dev/sda] download microcode fail!\n"
NAME = "FIRMWAREQXFW01A3.bin"


@pytest.fixture
def drive(board):
    disk.keep_log(board)
    return board


def update(board, image, name=NAME, device="sda", **options):
    work = board.scratch / "images"
    work.mkdir(exist_ok=True)
    if image is not None:
        (work / name).write_bytes(image)
    return board.run("upgrade", "ssd", device, name, cwd=work, **options)


def assert_run(run, status, stdout):
    assert run.stdout == stdout
    assert run.stderr == b""
    assert run.status == status


def without_blocks_of(board, size):
    """Options of a run in which the program gets no block of just this size."""
    return {"env": {**little_memory(board.build), "NO_BLOCKS_OF": str(size)}}


def begin(name=NAME):
    return b"FW from " + name.encode() + b"\n" + disk.IDENTITY


# --- arguments and files ------------------------------------------------------------------------


@pytest.mark.parametrize("words", [(), ("sda",), ("sda", "fw.bin", "x")])
def test_wrong_count_prints_the_example_and_is_no_failure(drive, words):
    run = drive.run("upgrade", "ssd", *words)
    assert_run(run, 0, b"Invalid params, eg. upgrade ssd  hda  fw.bin\n")
    assert run.requests == []


def test_names_of_64_characters_are_refused(drive):
    assert_run(drive.run("upgrade", "ssd", "d" * 64, "fw.bin"), 0, b"Divice name too long(<63)")
    run = drive.run("upgrade", "ssd", "sda", "p" * 64)
    assert run.status == 0
    assert run.stdout.rstrip(b"\n") == b"File path name too long(<63)"
    assert disk.commands(drive) == []


def test_missing_image(drive):
    assert_run(update(drive, None), 254, b"FW from " + NAME.encode() + b"\nopen bin fail\n")
    assert disk.commands(drive) == []


@pytest.mark.skipif(os.geteuid() == 0, reason="root reads everything")
def test_unreadable_image(drive):
    work = drive.scratch / "images"
    work.mkdir()
    (work / NAME).write_bytes(make_image(drive))
    (work / NAME).chmod(0)
    assert_run(update(drive, None), 254, b"FW from " + NAME.encode() + b"\nopen bin fail\n")
    assert disk.commands(drive) == []


def test_an_image_that_is_found_and_does_not_open(drive):
    drive.path("mnt/sd").mkdir(parents=True, exist_ok=True)
    drive.path(f"mnt/sd/{NAME}").write_bytes(make_image(drive))
    drive.fault(f"/mnt/sd/{NAME} open errno=EACCES")
    run = drive.run("upgrade", "ssd", "sda", f"/mnt/sd/{NAME}", story=True)
    assert run.status == 254
    assert_story(
        run,
        out(f"FW from /mnt/sd/{NAME}\n"),
        f"stat /mnt/sd/{NAME} = 0",
        f"open /mnt/sd/{NAME} RDONLY = EACCES",
        out("open bin fail\n"),
    )


def test_a_directory_is_read_and_fails(drive):
    work = drive.scratch / "images"
    (work / NAME).mkdir(parents=True)
    assert_run(update(drive, None), 253, b"FW from " + NAME.encode() + b"\nread bin fail\n")
    assert disk.commands(drive) == []


# --- the update ---------------------------------------------------------------------------------


def test_updates_the_drive_and_keeps_its_identity(drive):
    image = make_image(drive)
    assert_run(update(drive, image), 0, begin() + OWN + b"update success\n")
    assert disk.commands(drive) == READ_DRIVE + READ_RAM + chunks(16384)
    sent = disk.medium(drive, "sda.firmware")
    assert sent == stamped(image, b"QXFW01A3")
    assert disk.setting(drive, "updates") == "1"

    again = drive.run("bt2", "hdsmart", "/dev/sda")
    assert b"SerialNumber(SN)                 " + disk.SERIAL + b"\n" in again.stdout
    assert b"ModelNumber:                     " + disk.MODEL + b"\n" in again.stdout
    assert b"FirmWare(FW):                    QXFW01A3\n" in again.stdout


def test_each_step_is_told_before_the_next_one_is_taken(drive):
    run = update(drive, make_image(drive), story=True)
    assert [line if line.startswith("out ") else line.split()[0] for line in run.story] == [
        *out(b"FW from " + NAME.encode() + b"\n"),
        *("open", "ioctl", "close"),  # IDENTIFY
        *out(disk.IDENTITY),
        *("open", "ioctl", "ioctl", "close"),  # SMART and its autosave
        *("open", "ioctl", "close"),  # SMART READ DATA
        *out(OWN),
        *3 * ("open", "ioctl", "close"),  # vendor mode, announcement, fetch
        *("open", "ioctl", "ioctl", "ioctl", "ioctl", "close"),
        *out(b"update success\n"),
    ]


@pytest.mark.parametrize("fault", [None, "/dev/sda absent"])
def test_an_image_that_does_not_close_is_reported_last(drive, fault):
    drive.path("mnt/sd").mkdir(parents=True, exist_ok=True)
    drive.path(f"mnt/sd/{NAME}").write_bytes(make_image(drive))
    drive.fault(f"/mnt/sd/{NAME} close errno=EIO")
    end = begin(f"/mnt/sd/{NAME}") + OWN + b"update success\n"
    if fault:
        drive.fault(fault)
        end = (
            f"FW from /mnt/sd/{NAME}\n".encode() + b"open /dev/sda failed\n"
            b"sata[/dev/sda] read identify info fail!\nupdate fail(-1)\n"
        )
    run = drive.run("upgrade", "ssd", "sda", f"/mnt/sd/{NAME}")
    assert_run(run, 0, end + b"close bin fail\n")


def test_every_open_of_the_drive_is_for_reading_and_writing_without_blocking(drive):
    run = update(drive, make_image(drive))
    opens = {line for line in run.requests if line.startswith("open /dev/sda")}
    assert opens == {"open /dev/sda RDWR|NONBLOCK = 4"}  # 3 is the image's file


def test_an_identity_of_high_bytes_is_printed_and_kept_as_it_is(drive):
    serial = bytes(range(0x80, 0x94))
    model = b"QX-SSD " + bytes(range(0xDF, 0x100))
    disk.change(drive, "sda.identify", 20, disk.swapped(serial))
    disk.change(drive, "sda.identify", 54, disk.swapped(model))
    run = update(drive, make_image(drive))
    assert_run(
        run,
        0,
        begin().replace(disk.SERIAL, serial).replace(disk.MODEL, model) + OWN + b"update success\n",
    )
    sent = disk.medium(drive, "sda.firmware")
    assert sent[4212:4232] == disk.swapped(serial)
    assert sent[4246:4286] == disk.swapped(model)


def test_the_image_file_stays_as_it_was(drive):
    image = make_image(drive)
    update(drive, image)
    assert (drive.scratch / "images" / NAME).read_bytes() == image


def test_the_same_revision_may_be_loaded_again(drive):
    name = "FIRMWAREQXFW01A2.bin"
    image = make_image(drive)
    assert_run(update(drive, image, name), 0, begin(name) + OWN + b"update success\n")
    assert disk.medium(drive, "sda.firmware") == stamped(image, b"QXFW01A2")


@pytest.mark.parametrize("size", [5000, 5120, 8191, 8193, 16384, 20000, 68000])
def test_a_last_block_that_is_not_filled_ends_in_zeros(drive, size):
    drive.set("/dev/sda", "firmware_size", 1 << 30)  # the drive waits for more
    image = make_image(drive, size)
    if size < 5176:  # the tag's variant value lies behind the end: the drive must hold none either
        disk.change(drive, "sda.ram", 1040, bytes(4))
    assert_run(update(drive, image), 0, begin() + OWN + b"update success\n")
    assert disk.commands(drive) == READ_DRIVE + READ_RAM + chunks(size)
    sent = disk.medium(drive, "sda.firmware")
    assert sent[:size] == stamped(image, b"QXFW01A3")
    assert sent[size:] == bytes(-size % 512)


def test_byte_n_minus_2_does_not_count(drive):
    image = make_image(drive)
    image[-2] ^= 0x55
    run = update(drive, image)
    assert run.stdout.endswith(b"update success\n")
    assert disk.medium(drive, "sda.firmware")[-2] == image[-2]


def test_equivalent_variants_are_the_same_hardware(drive):
    assert update(drive, make_image(drive, variant=0x43)).stdout.endswith(b"update success\n")


# --- what stops it ------------------------------------------------------------------------------


def assert_stopped(board, run, text, result, commands):
    assert_run(run, 0, begin() + OWN + text + FAILED_TWICE + b"update fail(%d)\n" % result)
    assert disk.commands(board) == commands
    assert not board.path("media/sda.firmware").exists()
    assert disk.setting(board, "downloads") is None


@pytest.mark.parametrize("size", [0, 1])
def test_images_without_a_checksum(drive, size):
    run = update(drive, bytes(size))
    assert_stopped(drive, run, b"sata[/dev/sda] checksum fail!\n", -1, READ_DRIVE)


@pytest.mark.parametrize("change", [1, 255])
@pytest.mark.parametrize("size", [2, 511, 5000, 16384])
def test_a_wrong_checksum(drive, size, change):
    image = make_image(drive, size)
    image[-1] = (image[-1] + change) & 0xFF
    assert_stopped(drive, update(drive, image), b"sata[/dev/sda] checksum fail!\n", -1, READ_DRIVE)


@pytest.mark.parametrize("size", [2, 511])
def test_short_images_have_no_tag(drive, size):
    run = update(drive, make_image(drive, size))
    assert_stopped(
        drive, run, b"sata[/dev/sda] bin file compaer fail!\n", -2, READ_DRIVE + READ_RAM
    )


@pytest.mark.parametrize(
    "name, shown",
    [
        ("FIRMWAREQXFW01A1.bin", b"QXFW01A1"),
        ("FIRMWAREQXFW01B2.bin", b"QXFW01B2"),
        ("FIRMWAREqxfw01a2.bin", b"qxfw01a2"),
        ("FIRMWAREQXFW01.bin", b"QXFW01.b"),
        ("FIRMWARE", b""),
        ("fw.bin", b""),
    ],
)
def test_revisions_that_may_not_follow(drive, name, shown):
    run = update(drive, make_image(drive), name)
    assert_run(
        run,
        0,
        begin(name)
        + OWN
        + b"fwver error(curFw:QXFW01A2 updateFw:"
        + shown
        + b")"
        + FAILED_TWICE
        + b"update fail(-2)\n",
    )
    assert disk.commands(drive) == READ_DRIVE


@pytest.mark.parametrize("at", [726, 740, 743, 773, 780, 1040, 1043])
def test_an_image_for_other_hardware(drive, at):
    wrong = bytes([disk.tag_block(drive)[at] ^ 1])
    image = make_image(drive, **{f"at{4096 + at}": wrong})
    assert_stopped(
        drive,
        update(drive, image),
        b"sata[/dev/sda] bin file compaer fail!\n",
        -2,
        READ_DRIVE + READ_RAM,
    )


def test_a_drive_with_an_unknown_signature(drive):
    image = make_image(drive)
    disk.change(drive, "sda.ram", 720, b"XXSSD")
    assert_stopped(
        drive,
        update(drive, image),
        b"sata[/dev/sda] bin file compaer fail!\n",
        -2,
        READ_DRIVE + READ_RAM,
    )


# SG_IO requests in order: 1 enable SMART, 2 autosave, 3 vendor mode, 4 announce, 5 fetch, 6... chunks.


def test_failed_vendor_mode_is_reported_and_goes_on(drive):
    drive.fault("/dev/sda ioctl:SG_IO errno=EIO nth=3")
    drive.set("/dev/sda", "vendor_mode", 1)  # the drive is in it already
    assert_run(
        update(drive, make_image(drive)),
        0,
        begin() + OWN + b"sata command 0xef return -1\n"
        b"send ATA COMMAND SETFEATURES command, return -1\n"
        b"enable_vendor error errno = 5\n"
        b"update success\n",
    )


def test_a_scratch_buffer_that_is_not_to_be_had_is_reported_and_the_update_goes_on(drive):
    run = update(drive, make_image(drive), **without_blocks_of(drive, 512))
    assert_run(
        run,
        0,
        begin() + b"malloc failed\nenable_smart error errno = 12\n" + OWN + b"update success\n",
    )
    # Neither of the two commands that would need it.
    assert disk.commands(drive) == READ_DRIVE[:1] + READ_DRIVE[3:] + READ_RAM + chunks(16384)


def test_a_tag_block_that_is_not_to_be_had_ends_the_update(drive):
    run = update(drive, make_image(drive), **without_blocks_of(drive, 4096))
    assert_stopped(drive, run, b"malloc rawbuf failed\n", -1, READ_DRIVE)


def test_failed_announcement(drive):
    drive.fault("/dev/sda ioctl:SG_IO errno=EIO nth=4")
    assert_stopped(
        drive,
        update(drive, make_image(drive)),
        b"sata command 0x88 return -1\n"
        b"send ATA COMMAND VENDOR DMA WRITE command, return -1\n"
        b"enable_vendor write errno = 5\n"
        b"sata[/dev/sda] read ram data fail!\n",
        -2,
        READ_DRIVE + READ_RAM[:1],
    )


def test_failed_read_of_the_ram(drive):
    drive.fault("/dev/sda ioctl:SG_IO errno=EIO nth=5")
    assert_stopped(
        drive,
        update(drive, make_image(drive)),
        b"sata command 0x86 return -1\n"
        b"send ATA COMMAND VENDOR DMA READ command, return -1\n"
        b"enable_vendor read errno = 5\n"
        b"sata[/dev/sda] read ram data fail!\n",
        -2,
        READ_DRIVE + READ_RAM[:2],
    )


# Whatever is not 0 ends the download. A fault with a result lets the drive have the chunk.
@pytest.mark.parametrize(
    "effect, got, text, result",
    [
        ("errno=EIO", 0, b"sata command 0x92 return -1\n", -1),
        ("result=1", 1, b"", 1),
        ("result=7", 1, b"", 7),
    ],
)
@pytest.mark.parametrize("sent", [0, 1, 2, 3])
def test_a_download_that_breaks_off(drive, sent, effect, got, text, result):
    drive.fault(f"/dev/sda ioctl:SG_IO {effect} nth={6 + sent}")
    drive.set("/dev/sda", "firmware_size", 1 << 30)  # the drive waits for more
    run = update(drive, make_image(drive))
    assert_run(
        run,
        0,
        begin() + OWN + text + FAILED_TWICE + FAILED_TWICE + b"update fail(%d)\n" % result,
    )
    chunks_got = [chunk(8 * i, 8) for i in range(sent + got)]
    assert disk.commands(drive) == READ_DRIVE + READ_RAM + chunks_got
    # The node of the download is left open: one close less than opens.
    opens = [line for line in run.requests if line.startswith("open /dev/sda")]
    closes = [line for line in run.requests if line.startswith("close /dev/sda")]
    assert len(opens) == len(closes) + 1
    assert disk.setting(drive, "updates") is None


def test_a_drive_of_another_maker_is_left_alone(drive):
    disk.change(drive, "sda.identify", 54, disk.swapped(b"OTHER MAKER SSD".ljust(40)))
    disk.change(drive, "sda.smart_values", 400, bytes(9))
    run = update(drive, make_image(drive))
    assert_run(
        run,
        0,
        begin().replace(disk.MODEL, b"OTHER MAKER SSD".ljust(40))
        + b"not find this type sata[/dev/sda],not support upgrade!\nupdate success\n",
    )
    assert disk.commands(drive) == READ_DRIVE


@pytest.mark.parametrize("at, mark", [(400, b"KORVEXIUM"), (403, b"KORSMC")])
def test_a_mark_in_the_smart_data_is_enough(drive, at, mark):
    disk.change(drive, "sda.identify", 54, disk.swapped(b"REBRANDED".ljust(40)))
    disk.change(drive, "sda.smart_values", 400, bytes(9))
    disk.change(drive, "sda.smart_values", at, mark)
    assert OWN in update(drive, make_image(drive)).stdout


def test_missing_drive(drive):
    assert_run(
        update(drive, make_image(drive), device="sdb"),
        0,
        b"FW from " + NAME.encode() + b"\nopen /dev/sdb failed\n"
        b"sata[/dev/sdb] read identify info fail!\nupdate fail(-1)\n",
    )


def test_failed_identify(drive):
    drive.fault("/dev/sda ioctl:HDIO_DRIVE_CMD errno=EIO nth=1")
    assert_run(
        update(drive, make_image(drive)),
        0,
        b"FW from " + NAME.encode() + b"\nsend IDENTIFY DEVICE command, return -1\n"
        b"sata[/dev/sda] read identify info fail!\nupdate fail(-1)\n",
    )
    assert disk.commands(drive) == []


RETRY = b"send SMART READ VALUES command, return -1\nsata_read_smart_values error, retry!\n"


def test_two_failed_smart_reads_are_survived(drive):
    drive.fault("/dev/sda ioctl:HDIO_DRIVE_CMD errno=EIO nth=2")
    drive.fault("/dev/sda ioctl:HDIO_DRIVE_CMD errno=EIO nth=3")
    assert_run(
        update(drive, make_image(drive)), 0, begin() + RETRY + RETRY + OWN + b"update success\n"
    )


def test_three_failed_smart_reads_end_it(drive):
    drive.fault("/dev/sda ioctl:HDIO_DRIVE_CMD errno=EIO from=2")
    assert_run(
        update(drive, make_image(drive)),
        0,
        begin() + 3 * RETRY + b"sata_read_smart_values failed!\n"
        b"sata[/dev/sda] read smart info fail!\nupdate fail(-1)\n",
    )
    assert disk.commands(drive) == READ_DRIVE[:3]


def test_failed_enabling_of_smart_is_reported_and_goes_on(drive):
    drive.fault("/dev/sda ioctl:SG_IO errno=EIO nth=1")
    run = update(drive, make_image(drive))
    assert_run(
        run,
        0,
        begin() + b"sata command 0xd8 return -1\nsend SMART ENABLE command, return -1\n"
        b"enable_smart error errno = 5\n" + OWN + b"update success\n",
    )
    assert disk.AUTOSAVE not in disk.commands(drive)


HOST_STATUS = {
    1: b"",
    3: b"",
    4: b" BAD target. \n",
    5: b"Abort for some other reason. \n",
    14: b"BUS stayed busy through time out period. \n",
    15: b"BUS stayed busy through time out period. \n",
}


@pytest.mark.parametrize("memory", ["clear", "used"])
@pytest.mark.parametrize("status", HOST_STATUS)
def test_a_host_adapter_that_lost_the_drive(drive, status, memory):
    # Its status is not negative and does not end the reading of the RAM. The memory for it may hold
    # a tag block that suits the image: what the drive did not send must not count as its answer.
    options = {}
    if memory == "used":
        if is_instrumented(drive.build):
            pytest.skip("a sanitizer has an allocator of its own")
        options = {"env": {"LD_PRELOAD": str(drive.build / "tests/plugin/used_memory.so")}}
    drive.set("/dev/sda", "host_status", status)
    run = update(drive, make_image(drive, at4816=bytes(400)), **options)
    text = HOST_STATUS[status]
    assert_run(
        run,
        0,
        begin()
        + 2 * text  # enable SMART, autosave
        + OWN
        + 3 * text  # vendor mode, announcement, fetch
        + b"sata[/dev/sda] bin file compaer fail!\n"
        + FAILED_TWICE
        + b"update fail(-2)\n",
    )
    assert disk.commands(drive) == [disk.IDENTIFY, disk.READ_VALUES]


def test_a_read_only_node_is_not_opened(drive):
    drive.fault("/dev/sda open errno=EACCES")
    run = update(drive, make_image(drive))
    assert b"open /dev/sda failed\n" in run.stdout
    assert disk.commands(drive) == []
