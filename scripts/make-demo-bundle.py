#!/usr/bin/env python3
"""Writes a demo bake bundle: a street corner with two figures, a key light, a sun and a camera move.

make-demo-bundle.py FILE [--size WxH] [--frames N] [--fps RATE] [--ray-tracing] [--no-burn-in] [--folder PATH]

It is also a worked example of the format that docs/bake.md describes.
"""
import argparse
import array
import json
import math
import struct
import sys
import zipfile
import zlib


class Meshes:
    """meshes.bin and the table that tells where in it each mesh lies."""

    def __init__(self):
        self.bin = bytearray()
        self.records = []

    def put(self, kind, numbers):
        """Appends an array of 4-byte elements, little-endian, and gives its range."""
        elements = array.array(kind, numbers)
        if sys.byteorder == "big":
            elements.byteswap()
        at = len(self.bin)
        self.bin += elements.tobytes()
        return {"byteOffset": at, "count": len(elements)}

    def add(self, name, shape, color, matrix=None, shape_id=None, opacity=1, texture=None, double_sided=False):
        positions, normals, uvs, indices = shape
        record = {
            "id": name, "name": name, "localMatrix": matrix or translation(0, 0, 0),
            "material": {"colorHex": color, "opacity": opacity, "doubleSided": double_sided},
            "vertexCount": len(positions) // 3,
            "position": self.put("f", positions), "normal": self.put("f", normals),
            "uv": self.put("f", uvs), "index": self.put("I", indices),
        }
        if shape_id:
            record["shapeId"] = shape_id
        if texture:
            record["material"]["textureRef"] = texture
        self.records.append(record)


def translation(x, y, z):
    return [1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, x, y, z, 1]


def turned(yaw, x, y, z):
    """A turn about y (counter-clockwise from above), then a place."""
    c, s = math.cos(yaw), math.sin(yaw)
    return [c, 0, -s, 0, 0, 1, 0, 0, s, 0, c, 0, x, y, z, 1]


def box(width, height, depth, tile=None):
    """Centred in x and z, standing on y = 0. With a tile size in metres the texture repeats."""
    w, h, d = width / 2, height, depth / 2
    faces = [
        ((0, 0, 1), [(-w, 0, d), (w, 0, d), (w, h, d), (-w, h, d)], width, height),
        ((0, 0, -1), [(w, 0, -d), (-w, 0, -d), (-w, h, -d), (w, h, -d)], width, height),
        ((1, 0, 0), [(w, 0, d), (w, 0, -d), (w, h, -d), (w, h, d)], depth, height),
        ((-1, 0, 0), [(-w, 0, -d), (-w, 0, d), (-w, h, d), (-w, h, -d)], depth, height),
        ((0, 1, 0), [(-w, h, d), (w, h, d), (w, h, -d), (-w, h, -d)], width, depth),
        ((0, -1, 0), [(-w, 0, -d), (w, 0, -d), (w, 0, d), (-w, 0, d)], width, depth),
    ]
    positions, normals, uvs, indices = [], [], [], []
    for normal, corners, across, up in faces:
        first = len(positions) // 3
        u, v = (across / tile, up / tile) if tile else (1, 1)
        for corner, uv in zip(corners, [(0, 0), (u, 0), (u, v), (0, v)]):
            positions += corner
            normals += normal
            uvs += uv
        indices += [first, first + 1, first + 2, first, first + 2, first + 3]
    return positions, normals, uvs, indices


def turned_profile(profile, around=24):
    """A profile of (radius, height) turned about y; normals follow its slope."""
    positions, normals, uvs, indices = [], [], [], []
    for row, (radius, height) in enumerate(profile):
        before, after = profile[max(row - 1, 0)], profile[min(row + 1, len(profile) - 1)]
        slope = (after[1] - before[1], before[0] - after[0])
        length = math.hypot(*slope) or 1
        for step in range(around + 1):
            angle = 2 * math.pi * step / around
            c, s = math.cos(angle), math.sin(angle)
            positions += (radius * c, height, radius * s)
            normals += (slope[0] / length * c, slope[1] / length, slope[0] / length * s)
            uvs += (step / around, row / (len(profile) - 1))
    for row in range(len(profile) - 1):
        for step in range(around):
            a = row * (around + 1) + step
            b = a + around + 1
            indices += [a, b, a + 1, a + 1, b, b + 1]
    return positions, normals, uvs, indices


def capsule(radius, height, steps=8):
    """Standing on y = 0."""
    quarter = [math.pi / 2 * i / steps for i in range(steps + 1)]
    low = [(radius * math.sin(a), radius - radius * math.cos(a)) for a in quarter]
    high = [(radius * math.cos(a), height - radius + radius * math.sin(a)) for a in quarter]
    return turned_profile(low + high)


def dome(radius, steps=8):
    """The upper half of a ball around the origin."""
    quarter = [math.pi / 2 * i / steps for i in range(steps + 1)]
    return turned_profile([(radius * math.cos(a), radius * math.sin(a)) for a in quarter])


def png(width, height, pixel):
    rows = b"".join(b"\0" + bytes(c for x in range(width) for c in pixel(x, y)) for y in range(height))

    def chunk(kind, data):
        return struct.pack(">I", len(data)) + kind + data + struct.pack(">I", zlib.crc32(kind + data))

    header = struct.pack(">IIBBBBB", width, height, 8, 2, 0, 0, 0)
    return b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", header) + chunk(b"IDAT", zlib.compress(rows, 9)) + chunk(b"IEND", b"")


def noise(x, y):
    """0 to 1, the same each time."""
    n = (x * 374761393 + y * 668265263) & 0xFFFFFFFF
    n = ((n ^ (n >> 13)) * 1274126177) & 0xFFFFFFFF
    return ((n ^ (n >> 16)) & 0xFF) / 255


def brick(x, y):
    row = y // 16
    joint = y % 16 < 2 or (x + 16 * (row % 2)) % 32 < 2
    if joint:
        return (168, 160, 148)
    tone = 0.8 + 0.3 * noise((x + 16 * (row % 2)) // 32, row) + 0.08 * noise(x, y)
    return tuple(min(255, int(c * tone)) for c in (150, 78, 60))


def paving(x, y):
    if x % 64 < 2 or y % 64 < 2:
        return (104, 102, 98)
    tone = 0.9 + 0.12 * noise(x // 64, y // 64) + 0.06 * noise(x, y)
    return tuple(min(255, int(c * tone)) for c in (158, 154, 146))


def yaw_quaternion(yaw):
    return [0, math.sin(yaw / 2), 0, math.cos(yaw / 2)]


def swing_quaternion(yaw, swing):
    """A swing about the node's own x, then a turn about y."""
    y, w = math.sin(yaw / 2), math.cos(yaw / 2)
    sx, sw = math.sin(swing / 2), math.cos(swing / 2)
    return [w * sx, y * sw, -y * sx, w * sw]


def look_at(eye, target):
    """A camera's pose: it looks along its own -Z."""
    x, y, z = (target[i] - eye[i] for i in range(3))
    yaw, pitch = math.atan2(-x, -z), math.atan2(y, math.hypot(x, z))
    return list(eye) + swing_quaternion(yaw, pitch)


def build_street(meshes):
    meshes.add("road", box(60, 0.02, 16), "#4a4b4e", translation(0, -0.02, 8))
    meshes.add("pavement", box(60, 0.15, 30, tile=1.5), "#ffffff", translation(0, 0, -15), texture="paving")
    for i in range(-3, 4):
        meshes.add(f"marking {i}", box(2.2, 0.004, 0.16), "#d8d6cc", translation(4.5 * i, 0.001, 5))
    meshes.add("corner house", box(10, 9, 9, tile=2), "#ffffff", translation(-8.2, 0.15, -10.5), texture="brick")
    meshes.add("cornice", box(10.5, 0.5, 9.5), "#d9d2c3", translation(-8.2, 9.15, -10.5))
    meshes.add("plaster house", box(12, 12, 8), "#c9bda3", translation(10.5, 0.15, -12))
    meshes.add("far house", box(22, 7, 6), "#8f979c", translation(0, 0.15, -27))
    pane = box(1.3, 1.9, 0.06)
    frame = box(1.6, 2.2, 0.1)
    for floor in range(3):
        for column in range(3):
            x, y = -11.4 + 3.2 * column, 1.0 + 2.8 * floor
            meshes.add(f"frame {floor} {column}", frame, "#efe9dc", translation(x, y - 0.15, -5.98))
            meshes.add(f"pane {floor} {column}", pane, "#26384a", translation(x, y, -5.92))
            x = 6.6 + 3.6 * column
            meshes.add(f"right frame {floor} {column}", frame, "#6d5a45", translation(x, y - 0.15, -7.98))
            meshes.add(f"right pane {floor} {column}", pane, "#20303c", translation(x, y, -7.92))
    meshes.add("shop window", box(2.6, 2.2, 0.04), "#9fc4d8", turned(0.5, 3.1, 0.35, -4.2), opacity=0.35, double_sided=True)
    meshes.add("shop window rail", box(2.8, 0.12, 0.12), "#30343a", turned(0.5, 3.1, 0.23, -4.2))
    meshes.add("bollard 1", capsule(0.11, 1.0), "#2d3033", translation(-2.4, 0.15, -0.6))
    meshes.add("bollard 2", capsule(0.11, 1.0), "#2d3033", translation(0.9, 0.15, -0.6))
    meshes.add("lamp post", capsule(0.07, 4.6), "#25302b", translation(-5.6, 0.15, -1.2))


def build_key_light(meshes):
    """A lamp head on a stand; its own -Z is where it aims, seen from above."""
    yaw, x, z = 0.93, 3.4, 0.8
    # The stand ends below the lamp, which would else stand in its own light.
    meshes.add("key stand", capsule(0.03, 2.75), "#1c1c1e", translation(x, 0.15, z))
    meshes.add("key-1", box(0.5, 0.5, 0.35), "#202022", turned(yaw, x, 2.95, z))


def build_figure(meshes, name, coat, trousers):
    """Body, head and limbs; what moves apart has a shape of its own. Gives nothing but records."""
    meshes.add(f"{name} body", capsule(0.23, 0.78), coat, translation(0, 0.78, 0), f"{name}")
    meshes.add(f"{name} head", capsule(0.125, 0.29), "#d3a283", translation(0, 1.52, 0), f"{name}")
    meshes.add(f"{name} hair", dome(0.135), "#3a2a20", translation(0, 1.69, 0.01), f"{name}")
    for side, x in (("left", -0.11), ("right", 0.11)):
        meshes.add(f"{name} {side} leg", capsule(0.085, 0.9), trousers, translation(0, -0.88, 0), f"{name}-{side}-leg")
        meshes.add(f"{name} {side} arm", capsule(0.06, 0.68), coat, translation(0, -0.65, 0), f"{name}-{side}-arm")


def figure_tracks(name, frames, path):
    """path(t) gives x, z, yaw and the phase of the step at t from 0 to 1."""
    tracks = {name: []}
    parts = [(f"{name}-{side}-{limb}", x, y, sign)
             for side, flip in (("left", -1), ("right", 1))
             for limb, x, y, sign in (("leg", 0.11 * flip, 0.9, flip), ("arm", 0.28 * flip, 1.47, -flip))]
    for part, _, _, _ in parts:
        tracks[part] = []
    for frame in range(frames):
        x, z, yaw, phase, stride = path(frame / max(frames - 1, 1))
        bob = 0.02 * abs(math.cos(phase)) * (1 if stride else 0)
        tracks[name].append([x, 0.15 + bob, z] + yaw_quaternion(yaw))
        for part, dx, y, sign in parts:
            px = x + dx * math.cos(yaw)
            pz = z - dx * math.sin(yaw)
            swing = sign * stride * math.sin(phase) + (0 if "leg" in part else -0.05)
            tracks[part].append([px, 0.15 + bob + y, pz] + swing_quaternion(yaw, swing))
    return [{"targetId": target, "perFrame": samples} for target, samples in tracks.items()]


def animation(frames, fps):
    seconds = frames / fps

    def walker(t):
        x = -3.6 + 2.7 * t
        return x, -1.9 + 0.3 * t, -math.pi / 2, 5.2 * seconds * t, 0.55

    def waiting(t):
        turn = 0.5 - 0.5 * math.cos(math.pi * t)
        return 0.75, -2.3, 2.4 - 0.9 * turn, 0, 0

    camera = []
    for frame in range(frames):
        t = frame / max(frames - 1, 1)
        eased = t * t * (3 - 2 * t)
        eye = (3.4 - 1.5 * eased, 1.62 + 0.06 * eased, 5.6 - 1.5 * eased)
        target = (-0.75 + 0.45 * eased, 1.32, -2.2)
        camera.append({"pose": look_at(eye, target), "fovDeg": 34 - 2 * eased, "focusDistanceM": math.dist(eye, target)})
    overview = {"pose": look_at((9, 7, 12), (-1, 1, -4)), "fovDeg": 40}
    return {
        "frameCount": frames, "frameTimesS": [frame / fps for frame in range(frames)],
        "tracks": figure_tracks("walker", frames, walker) + figure_tracks("waiting", frames, waiting),
        "cameras": [
            {"cameraId": "overview", "slate": "Overview", "isRef": True, "perFrame": [overview]},
            {"cameraId": "cam-a", "slate": "A", "isRef": False, "perFrame": camera},
        ],
    }


def photometry(fps):
    return {
        "suns": [{
            "id": "sun", "azDeg": 248, "elDeg": 27, "lux": 7000, "discRadiusM": 0.7, "distanceM": 120, "falloff": 1,
            "cctK": 4600, "castShadow": True, "mode": "sun", "lockSunColor": False,
        }],
        "lights": [{
            "id": "key-1", "name": "Key", "fixtureId": "hmi-1200", "outputLumens": 90000, "luxAt10ft": 12000,
            "beamAngleDeg": 38, "dimmer": 1, "colorHex": "#ffffff", "cctK": 4300, "penumbra": 0.4, "heightM": 3.2,
            "aimAngleRad": 0.36, "lightOn": True,
        }],
        "ambient": {"lux": 2200, "cctK": 8500},
        "exposure": {"iso": 100, "tStop": 8, "shutterAngleDeg": 180, "fps": fps, "meterMode": "incident-flat"},
        "constants": {
            "luxToIntensity": 0.001, "renderLuxToIntensity": 0.001, "povMidGreyGain": 0.001 / math.pi,
            "sunSoftnessDistanceRefM": 50, "sunShadowRadiusMin": 0.5, "sunShadowRadiusMax": 24, "sunSoftnessGain": 1.5,
            "sunFalloffDefault": 1, "sunFalloffMin": 0.1, "sunFalloffMax": 4, "outputReferenceDistanceM": 3.048,
            "incidentConstantFlat": 250, "incidentConstantDome": 320,
        },
    }


def manifest(options, width, height):
    burn_in = not options.no_burn_in
    return {
        "version": 1, "slates": {"project": "Harbour Nights", "scene": "12", "setup": "A", "shot": "3"},
        "fps": options.fps, "width": width, "height": height, "frameCount": options.frames, "isStatic": False,
        "burnIn": {"title": burn_in, "titleText": "Street corner", "slate": burn_in, "settings": burn_in,
                   "legal": burn_in, "legalText": "Previsualisation. Not for distribution.", "watermark": False},
        "rayTracing": options.ray_tracing, "outputFolderPath": options.folder, "createdAtIso": "2026-01-15T09:30:00Z",
    }


def main():
    parser = argparse.ArgumentParser(description="Writes a demo bake bundle.")
    parser.add_argument("file")
    parser.add_argument("--size", default="1280x720")
    parser.add_argument("--frames", type=int, default=96)
    parser.add_argument("--fps", type=float, default=24)
    parser.add_argument("--ray-tracing", action="store_true")
    parser.add_argument("--no-burn-in", action="store_true")
    parser.add_argument("--folder", default="Harbour Nights/Sc12/Setup A")
    options = parser.parse_args()
    width, height = map(int, options.size.split("x"))

    meshes = Meshes()
    build_street(meshes)
    build_key_light(meshes)
    build_figure(meshes, "walker", "#a8342c", "#2f3440")
    build_figure(meshes, "waiting", "#2e5d8c", "#57504a")
    table = {"records": meshes.records, "textures": {"brick": "brick.png", "paving": "paving.png"}}
    entries = {
        "manifest.json": json.dumps(manifest(options, width, height)),
        "meshes.json": json.dumps(table),
        "animation.json": json.dumps(animation(options.frames, options.fps)),
        "photometry.json": json.dumps(photometry(options.fps)),
        "meshes.bin": bytes(meshes.bin),
        "textures/brick.png": png(256, 256, brick),
        "textures/paving.png": png(128, 128, paving),
    }
    with zipfile.ZipFile(options.file, "w", zipfile.ZIP_DEFLATED) as archive:
        for name, content in entries.items():
            # A fixed date, so that the same options give the same bytes.
            archive.writestr(zipfile.ZipInfo(name, (2026, 1, 15, 9, 30, 0)), content, zipfile.ZIP_DEFLATED)


if __name__ == "__main__":
    main()
