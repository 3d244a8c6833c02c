"""Makes the media of the virtual board's disk: make_disk.py [--check] DIRECTORY

sda.identify, sda.smart_values, sda.smart_thresholds (one sector each) and sda.ram (the controller's
RAM) are those of a healthy SSD of the board's own maker, laid out as the ATA Command Set says. With
--check the files are compared with what would be made.
"""

import pathlib
import sys

SECTOR = 512
SECTORS = 250069680  # 128 GB

SERIAL = "QX0123456789ABCDEF01"
REVISION = "QXFW01A2"
MODEL = "QX-SSD 128GB"
WORLD_WIDE_NAME = 0x5000C0DE00A1B2C3

# id, flags, value, worst, raw, threshold
ATTRIBUTES = [
    (5, 0x33, 100, 100, 0, 10),
    (9, 0x32, 100, 100, 4321, 0),
    (12, 0x32, 100, 100, 87, 0),
    (13, 0x0F, 100, 100, 0, 50),
    (167, 0x22, 100, 100, 0, 0),
    (168, 0x12, 100, 100, 3, 0),
    (169, 0x13, 100, 100, 0x0004_0010_000C, 10),
    (170, 0x13, 99, 99, 0, 10),
    (174, 0x12, 100, 100, 5, 0),
    (175, 0x13, 100, 100, 0, 10),
    (180, 0x33, 98, 98, 240, 10),
    (187, 0x32, 100, 100, 0, 0),
    (192, 0x12, 100, 100, 0x0002_0009, 0),
    (194, 0x22, 61, 45, 0x0037_0012_0027, 0),
    (197, 0x12, 100, 100, 0, 0),
    (199, 0x0B, 100, 100, 2, 50),
    (206, 0x32, 100, 100, 11, 0),
    (207, 0x32, 100, 100, 29, 0),
    (208, 0x32, 100, 100, 18, 0),
    (231, 0x13, 97, 97, 0x0312, 5),
    (233, 0x32, 100, 100, 2142, 0),
    (241, 0x32, 100, 100, 1500, 0),
    (242, 0x32, 100, 100, 2750, 0),
]


def swapped(text, size):
    data = bytearray(text.encode().ljust(size))
    data[0::2], data[1::2] = data[1::2], data[0::2]
    return data


def with_checksum(sector):
    sector[SECTOR - 1] = -sum(sector[: SECTOR - 1]) & 0xFF
    return bytes(sector)


def identify():
    sector = bytearray(SECTOR)

    def word(index, *values):
        for offset, value in enumerate(values):
            sector[2 * (index + offset) : 2 * (index + offset) + 2] = value.to_bytes(2, "little")

    word(0, 0x0040)
    word(1, 16383)
    word(3, 16)
    word(6, 63)
    sector[20:40] = swapped(SERIAL, 20)
    sector[46:54] = swapped(REVISION, 8)
    sector[54:94] = swapped(MODEL, 40)
    word(47, 0x8010, 0x4000, 0x2F00, 0x4000)
    word(53, 0x0007, 16383, 16, 63, 0xFC10, 0x00FB)
    word(59, 0x0110)
    word(60, SECTORS & 0xFFFF, SECTORS >> 16)
    word(63, 0x0007, 0x0003, 120, 120, 120, 120)
    word(69, 0x4020)  # deterministic reads of zeros after TRIM
    word(75, 0x001F)
    word(76, 0x850E, 0x0006)  # up to 6.0 Gb/s, running at it
    word(78, 0x004C, 0x0040)
    word(80, 0x03F8)
    word(82, 0x346B, 0x7D09, 0x6163)  # what it can do
    word(85, 0x3469, 0xBC09, 0x6163)  # what is enabled
    word(88, 0x407F)
    word(100, SECTORS & 0xFFFF, SECTORS >> 16, 0, 0)
    word(105, 8)
    word(106, 0x4000)
    word(108, *((WORLD_WIDE_NAME >> shift) & 0xFFFF for shift in (48, 32, 16, 0)))
    word(169, 0x0001)
    word(217, 0x0001)
    word(222, 0x10FF)  # SATA 3.2
    sector[510] = 0xA5
    return with_checksum(sector)


def smart_values():
    sector = bytearray(SECTOR)
    sector[0:2] = (0x0010).to_bytes(2, "little")
    for index, (number, flags, value, worst, raw, _) in enumerate(ATTRIBUTES):
        at = 2 + 12 * index
        sector[at : at + 5] = bytes((number, flags & 0xFF, flags >> 8, value, worst))
        sector[at + 5 : at + 11] = raw.to_bytes(6, "little")
    sector[362] = 0x02
    sector[364:366] = (32).to_bytes(2, "little")
    sector[367] = 0x5B
    sector[368:370] = (0x0003).to_bytes(2, "little")
    sector[370] = 1
    sector[372] = 1
    sector[373] = 2
    sector[400:409] = b"KORVEXIUM"
    return with_checksum(sector)


def smart_thresholds():
    sector = bytearray(SECTOR)
    sector[0:2] = (0x0010).to_bytes(2, "little")
    for index, (number, _, _, _, _, threshold) in enumerate(ATTRIBUTES):
        sector[2 + 12 * index : 4 + 12 * index] = bytes((number, threshold))
    return with_checksum(sector)


def ram():
    block = bytearray(4096)
    block[720:725] = b"PLSSD"
    block[726] = 0x21
    block[740:744] = bytes.fromhex("0300 1200")
    block[766:772] = b"QT6027"
    block[773:781] = b"HW01VB01"
    block[1040:1044] = (0x2B).to_bytes(4, "little")
    return bytes(block)


MEDIA = {
    "sda.identify": identify,
    "sda.smart_values": smart_values,
    "sda.smart_thresholds": smart_thresholds,
    "sda.ram": ram,
}


def main():
    check = sys.argv[1] == "--check"
    directory = pathlib.Path(sys.argv[-1])
    for name, make in MEDIA.items():
        if not check:
            (directory / name).write_bytes(make())
        elif (directory / name).read_bytes() != make():
            sys.exit(f"{directory / name} is not what make_disk.py makes")


main()
