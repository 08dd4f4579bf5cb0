#!/usr/bin/env python3
"""Packs the browser extension as a CRX3 file, without a browser.

    pack_extension.py SOURCES VERSION KEY.pem OUTPUT_FOLDER

Writes mnemora.crx and extension.json (its id and version) into OUTPUT_FOLDER. KEY.pem is a PKCS #8
RSA key and is made when it is not there; its public half goes into the manifest, which fixes the
id. Needs the openssl program.

Format: https://chromium.googlesource.com/chromium/src/+/main/components/crx_file/crx3.proto
"""
import base64
import hashlib
import io
import json
import os
import pathlib
import struct
import subprocess
import sys
import zipfile

CRX_ID = 1  # field numbers of crx3.proto
PUBLIC_KEY, SIGNATURE = 1, 2
SHA256_WITH_RSA, SIGNED_HEADER_DATA = 2, 10000


def openssl(*arguments, data=None):
    done = subprocess.run(["openssl", *arguments], input=data, capture_output=True)
    if done.returncode != 0:
        sys.exit("openssl: " + done.stderr.decode(errors="replace"))
    return done.stdout


def make_key(path):
    path.parent.mkdir(parents=True, exist_ok=True)
    made = openssl("genpkey", "-algorithm", "RSA", "-pkeyopt", "rsa_keygen_bits:2048")
    with os.fdopen(os.open(path, os.O_WRONLY | os.O_CREAT | os.O_EXCL, 0o600), "wb") as file:
        file.write(made)


def extension_id(public_key):
    """The first 16 bytes of the key's SHA-256, each half byte as a letter from a to p."""
    digits = hashlib.sha256(public_key).hexdigest()[:32]
    return "".join(chr(ord("a") + int(digit, 16)) for digit in digits)


def varint(number):
    out = bytearray()
    while number > 0x7F:
        out.append(number & 0x7F | 0x80)
        number >>= 7
    return bytes(out + bytes([number]))


def field(number, value):
    """A length-delimited field of the protocol buffer wire format."""
    return varint(number << 3 | 2) + varint(len(value)) + value


def archive(sources, version, public_key):
    manifest = (sources / "manifest.json").read_text()
    manifest = manifest.replace("@VERSION@", version)
    manifest = manifest.replace("@KEY@", base64.b64encode(public_key).decode())
    files = {path.relative_to(sources).as_posix(): path.read_bytes()
             for path in sorted(sources.rglob("*")) if path.is_file()}
    files["manifest.json"] = manifest.encode()
    out = io.BytesIO()
    with zipfile.ZipFile(out, "w", zipfile.ZIP_DEFLATED) as packed:
        for name, content in files.items():  # one fixed date: the same sources, the same file
            packed.writestr(zipfile.ZipInfo(name, (1980, 1, 1, 0, 0, 0)), content, zipfile.ZIP_DEFLATED)
    return out.getvalue()


def crx(content, key, public_key):
    signed = field(CRX_ID, hashlib.sha256(public_key).digest()[:16])
    message = b"CRX3 SignedData\x00" + struct.pack("<I", len(signed)) + signed + content
    signature = openssl("dgst", "-sha256", "-sign", str(key), data=message)
    proof = field(PUBLIC_KEY, public_key) + field(SIGNATURE, signature)
    header = field(SHA256_WITH_RSA, proof) + field(SIGNED_HEADER_DATA, signed)
    return b"Cr24" + struct.pack("<II", 3, len(header)) + header + content


def main():
    sources, version, key, output = (pathlib.Path(sys.argv[1]), sys.argv[2],
                                     pathlib.Path(sys.argv[3]), pathlib.Path(sys.argv[4]))
    if not key.exists():
        make_key(key)
    public_key = openssl("pkey", "-in", str(key), "-pubout", "-outform", "DER")
    output.mkdir(parents=True, exist_ok=True)
    (output / "mnemora.crx").write_bytes(crx(archive(sources, version, public_key), key, public_key))
    (output / "extension.json").write_text(
        json.dumps({"id": extension_id(public_key), "version": version}) + "\n")


if __name__ == "__main__":
    main()
