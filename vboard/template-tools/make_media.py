"""Makes the media of the virtual board that are no texts: make_media.py [--check] TEMPLATE

The flash with the boot loader's environment (media/mtd1.bin, from etc/uboot-env.txt), the display's
memory, the chip card's bytes, the boot-parameter and the hardware-information block. With --check the
files are compared with what would be made.
"""

import pathlib
import sys
import zlib

FLASH_SIZE = 64 << 10
ENVIRONMENT_SIZE = 16 << 10  # as etc/fw_env.config says
FRAME_SIZE = 128 * 64 // 8
BLOCK_SIZE = 256


def environment(text):
    """A CRC32 over "name=value" entries, each ended by a zero byte, and zeros up to the end."""
    lines = (line.strip() for line in text.splitlines())
    entries = b"".join(f"{line}\0".encode() for line in lines if line and not line.startswith("#"))
    data = (entries + b"\0").ljust(ENVIRONMENT_SIZE - 4, b"\0")
    assert len(data) == ENVIRONMENT_SIZE - 4, "the environment does not fit"
    return zlib.crc32(data).to_bytes(4, "little") + data


def media(template):
    text = (template / "etc/uboot-env.txt").read_text(encoding="utf-8")
    return {
        "media/mtd1.bin": environment(text).ljust(FLASH_SIZE, b"\xff"),
        "media/lcd.frame": bytes(FRAME_SIZE),
        "media/iccard.bin": bytes(BLOCK_SIZE),
        "sys/bus/nvmem/devices/bootparam0/nvmem": bytes(BLOCK_SIZE),
        "sys/bus/nvmem/devices/hardinfo0/nvmem": b"VIRTUAL BOARD REV 1".ljust(BLOCK_SIZE, b"\0"),
    }


def main(arguments):
    check = arguments[:1] == ["--check"]
    if len(arguments) != 1 + check:
        sys.exit(__doc__)
    template = pathlib.Path(arguments[-1])
    for name, content in media(template).items():
        file = template / name
        if check:
            if not file.exists() or file.read_bytes() != content:
                sys.exit(f"{name} is not what {pathlib.Path(__file__).name} makes")
        else:
            file.parent.mkdir(parents=True, exist_ok=True)
            file.write_bytes(content)


if __name__ == "__main__":
    main(sys.argv[1:])
