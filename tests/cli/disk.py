"""The virtual board's SSD for tests: its sectors, firmware images, and the commands that it got.

Assumes the board's /dev/sda (model sata_disk): sectors in media/sda.identify, sda.smart_values and
sda.smart_thresholds, the controller's RAM in media/sda.ram, and with the setting `log` a line for
each command: "SG" with the CDB or "HD" with the request's header, then the data's bytes.
"""

SECTOR = 512
SERIAL = b"QX0123456789ABCDEF01"
REVISION = b"QXFW01A2"
MODEL = b"QX-SSD 128GB".ljust(40)
WORLD_WIDE_NAME = bytes.fromhex("5000C0DE00A1B2C3")

IDENTITY = (
    b"**************************IDENTIFY_INFO************************\n"
    b"SerialNumber(SN)                 " + SERIAL + b"\n"
    b"ModelNumber:                     " + MODEL + b"\n"
    b"FirmWare(FW):                    " + REVISION + b"\n"
)

IDENTIFY = "HD ec 00 00 01 512"
READ_VALUES = "HD b0 00 d0 01 512"
ENABLE_SMART = "SG 85 06 20 00 d8 00 00 00 01 00 4f 00 c2 40 b0 00 0"
AUTOSAVE = "SG 85 06 20 00 d2 00 f1 00 01 00 4f 00 c2 40 b0 00 0"
VENDOR_MODE = "SG a1 06 20 da 41 00 00 00 40 ef 00 00 0"
ANNOUNCE = "SG a1 0c 06 00 01 ff 34 12 40 88 00 00 512"
FETCH_RAM = "SG a1 0c 0e 00 08 86 34 12 40 86 00 00 4096"

READ_DRIVE = [IDENTIFY, ENABLE_SMART, AUTOSAVE, READ_VALUES]
READ_RAM = [VENDOR_MODE, ANNOUNCE, FETCH_RAM]


def chunk(offset, blocks):
    """DOWNLOAD MICROCODE of `blocks` blocks at block `offset`."""
    return f"SG a1 0a 06 03 {blocks & 0xff:02x} {blocks >> 8:02x} {offset & 0xff:02x} {offset >> 8:02x} 40 92 00 00 {blocks * SECTOR}"


def chunks(size):
    blocks = (size + SECTOR - 1) // SECTOR
    return [chunk(offset, min(8, blocks - offset)) for offset in range(0, blocks, 8)]


def swapped(text):
    data = bytearray(text)
    data[0::2], data[1::2] = data[1::2], data[0::2]
    return bytes(data)


def keep_log(board):
    board.set("/dev/sda", "log", "sda.log")


def commands(board):
    """What the drive got since the log was asked for."""
    log = board.path("media/sda.log")
    return log.read_text().splitlines() if log.exists() else []


def medium(board, name):
    return bytearray(board.path(f"media/{name}").read_bytes())


def change(board, name, at, data):
    sector = medium(board, name)
    sector[at : at + len(data)] = data
    board.path(f"media/{name}").write_bytes(sector)


def setting(board, key):
    for line in board.path("dev/sda").read_text().splitlines():
        name, _, value = line.partition("=")
        if name.strip() == key:
            return value.strip()
    return None


def with_checksum(image):
    """Byte N - 1 makes bytes 0 to N - 3 add up to 0; byte N - 2 is not covered."""
    if len(image) >= 2:
        image[-1] = -sum(image[:-2]) & 0xFF
    return image


def tag_block(board):
    return medium(board, "sda.ram")


def make_image(board, size=16384, **changes):
    """A firmware image for the board's drive. changes: variant=0x43, or bytes at offsets as at720=b"..."."""
    image = bytearray((7 * i + i // 251) & 0xFF for i in range(max(size, 8192)))
    image[4096:8192] = tag_block(board)
    image[4192:4704] = bytes((11 * i) & 0xFF for i in range(SECTOR))
    for name, value in changes.items():
        if name == "variant":
            image[4096 + 1040 : 4096 + 1044] = value.to_bytes(4, "little")
        else:
            at = int(name.removeprefix("at"))
            image[at : at + len(value)] = value
    return with_checksum(image[:size])


def stamped(image, revision, wwn=WORLD_WIDE_NAME):
    """The image as the drive must get it: its own identity in the template, the checksum anew."""
    image = bytearray(image)
    image[4212:4232] = swapped(SERIAL)
    image[4238:4246] = swapped(revision)
    image[4246:4286] = swapped(MODEL)
    image[4408:4416] = swapped(wwn)
    return with_checksum(image)
