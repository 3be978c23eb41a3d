# SPDX-License-Identifier: Apache-2.0
"""Draws faces. An Identity is who it is, a View how it is seen; render() gives pixels, box and points.
`rng` is a np.random.Generator.

Coordinates of a head: x to the picture's right, y down, both from -1 to 1 across the front of the face
(x = -1 and 1: its edges; y = -1: hairline, y = 1: chin), z towards the viewer. The face box reaches from
ear to ear and from the hairline's top to the chin, in the turned head.
"""
import dataclasses
import functools

import cv2
import numpy as np

from models.sources.drawn.paint import fill_polygon, stroke

CANVAS = 256   # a head is drawn at this size and scaled down
CENTRE = 128.0
HALF_HEIGHT = 82.0  # pixels of the canvas from the middle of a face to its chin
_fill = functools.partial(fill_polygon, shift=3)  # eighths of a pixel
_line = functools.partial(stroke, shift=3)

SKINS = [(196, 220, 245), (170, 200, 236), (140, 178, 222), (112, 150, 200), (84, 118, 170), (58, 86, 130), (44, 64, 100)]
HAIRS = [(24, 22, 20), (36, 48, 70), (40, 74, 118), (80, 140, 190), (130, 190, 224), (48, 66, 150), (150, 150, 150),
         (215, 215, 215)]
IRISES = [(60, 45, 30), (40, 70, 100), (140, 110, 60), (90, 120, 60), (90, 90, 90)]


@dataclasses.dataclass
class Identity:
    skin: tuple
    hair_colour: tuple
    iris: tuple
    lips: tuple
    width: float          # of the face, of its height
    jaw: float            # exponent of the lower outline: 1.6 pointed to 3.2 square
    forehead: float
    eye_x: float
    eye_y: float
    eye_width: float
    eye_height: float
    eye_tilt: float
    brow_gap: float
    brow_thickness: float
    brow_tilt: float
    nose_y: float
    nose_width: float
    mouth_y: float
    mouth_width: float
    lip: float
    ear: float
    hair: str
    fringe: float
    beard: str
    glasses: str
    moles: list
    cheeks: float


def random_identity(rng):
    """Who it is; the same generator state gives the same person."""
    def u(low, high):
        return float(rng.uniform(low, high))

    skin = _jitter(rng, SKINS[rng.integers(len(SKINS))], 12)
    is_bearded = rng.random() < 0.3
    lips = tuple(int(c * f) for c, f in zip(skin, (u(0.6, 0.8), u(0.55, 0.75), u(0.85, 1.0))))
    return Identity(
        skin=skin, hair_colour=_jitter(rng, HAIRS[rng.integers(len(HAIRS))], 12),
        iris=IRISES[rng.integers(len(IRISES))], lips=lips,
        width=u(0.66, 0.88), jaw=u(1.7, 3.2), forehead=u(2.0, 3.0),
        eye_x=u(0.36, 0.50), eye_y=u(-0.22, -0.06), eye_width=u(0.15, 0.24), eye_height=u(0.06, 0.125), eye_tilt=u(-0.15, 0.15),
        brow_gap=u(0.12, 0.22), brow_thickness=u(0.025, 0.08), brow_tilt=u(-0.25, 0.2),
        nose_y=u(0.22, 0.38), nose_width=u(0.12, 0.26),
        mouth_y=u(0.52, 0.68), mouth_width=u(0.24, 0.42), lip=u(0.04, 0.10),
        ear=u(0.14, 0.26), hair=["bald", "short", "short", "parted", "long", "long", "curly", "bun"][rng.integers(8)],
        fringe=u(-0.75, -0.45),
        beard=["stubble", "full", "moustache", "chin"][rng.integers(4)] if is_bearded else "none",
        glasses=["round", "square"][rng.integers(2)] if rng.random() < 0.25 else "none",
        moles=[(u(-0.6, 0.6), u(-0.5, 0.8), u(0.018, 0.04)) for _ in range(rng.integers(0, 3))], cheeks=u(0, 0.35))


@dataclasses.dataclass
class View:
    yaw: float = 0.0      # degrees; positive: turned to the picture's right
    pitch: float = 0.0    # positive: looking down
    roll: float = 0.0     # positive: clockwise
    smile: float = 0.0    # -1 sad to 1
    mouth_open: float = 0.0
    eyes_open: float = 1.0
    brows: float = 0.0
    gaze: float = 0.0
    light: float = 0.0    # direction of the light, radians
    shade: float = 0.3    # how dark the side away from it is, 0 to 1
    cover: str = "none"   # mask, sunglasses, cap, scarf, hand


def _angle(rng, deviation):
    return float(np.clip(rng.normal(0, deviation), -2.4 * deviation, 2.4 * deviation))


def random_view(rng, amount=1.0, covers=("none",)):
    """How somebody is seen; `amount` scales pose and expression."""
    return View(yaw=_angle(rng, 17 * amount), pitch=_angle(rng, 9 * amount), roll=_angle(rng, 7 * amount),
                smile=float(rng.uniform(-0.6, 1.0)), mouth_open=float(max(0, rng.normal(-0.1, 0.4))),
                eyes_open=float(np.clip(rng.normal(0.95, 0.2), 0.1, 1.2)), brows=float(rng.normal(0, 0.5)),
                gaze=float(rng.uniform(-1, 1)), light=float(rng.uniform(-np.pi, np.pi)), shade=float(rng.uniform(0, 0.6)),
                cover=covers[rng.integers(len(covers))])


class Head:
    """Where points of a face come to lie on the canvas in a view."""

    def __init__(self, identity, view):
        self.id = identity
        yaw, pitch, roll = (np.radians(a) for a in (view.yaw, view.pitch, view.roll))
        self.yaw, self.pitch = yaw, pitch
        self.roll = np.array([[np.cos(roll), -np.sin(roll)], [np.sin(roll), np.cos(roll)]])

    def project(self, points, lift=0.0):
        """Face coordinates to canvas pixels; `lift`: above the surface of the head, such as a nose."""
        p = np.atleast_2d(np.asarray(points, float))
        half_width = self.id.width
        x, y = p[:, 0] * half_width, p[:, 1]
        round_x, round_y = np.maximum(0.0, 1.0 - p[:, 0] ** 2 * 0.9), np.maximum(0.15, 1.0 - 0.45 * y ** 2)
        z = 0.62 * np.sqrt(round_x) * np.sqrt(round_y) + lift
        turned_x = x * np.cos(self.yaw) + z * np.sin(self.yaw)
        z = z * np.cos(self.yaw) - x * np.sin(self.yaw)
        turned_y = y * np.cos(self.pitch) + z * np.sin(self.pitch) * 0.8
        return (np.stack([turned_x, turned_y], 1) @ self.roll.T) * HALF_HEIGHT + CENTRE

    def flat(self, points):
        """Points of the outline: they turn with the head in the plane, not around it."""
        p = np.atleast_2d(np.asarray(points, float)) * (self.id.width, 1.0)
        p = p + (0.12 * np.sin(self.yaw), 0.10 * np.sin(self.pitch))
        return (p @ self.roll.T) * HALF_HEIGHT + CENTRE


def render(identity, view, size=None):
    """The head as BGRA of CANVAS x CANVAS pixels (or size x size), its box (x, y, w, h) and its five points:
    left eye, right eye, nose tip, left and right mouth corner as seen in the picture."""
    head = Head(identity, view)
    image = np.zeros((CANVAS, CANVAS, 3), np.uint8)
    image[:] = identity.skin
    alpha = np.zeros((CANVAS, CANVAS), np.uint8)
    outline = head.flat(_outline(identity))
    _neck(head, image, alpha)
    _back_hair(head, image, alpha)
    ears = _ears(head, image, alpha)
    _fill(image, outline, identity.skin)
    _fill(alpha, outline, 255)
    _shade(image, outline, view)
    points = _features(head, view, image)
    _hair(head, image, alpha)
    if view.cover != "none":
        COVERS[view.cover](head, view, image, alpha)
    around = np.concatenate([outline, ears])
    low, high = around.min(axis=0), around.max(axis=0)
    box = np.array([low[0], low[1], high[0] - low[0], high[1] - low[1]])
    bgra = np.dstack([image, alpha])
    if size and size != CANVAS:
        bgra = cv2.resize(bgra, (size, size), interpolation=cv2.INTER_AREA)
        box, points = box * size / CANVAS, points * size / CANVAS
    return bgra, box, points


# ----- Parts of a face -----------------------------------------------------------------------------


def _jitter(rng, colour, amount):
    return tuple(int(np.clip(c + rng.integers(-amount, amount + 1), 0, 255)) for c in colour)


def _darker(colour, factor):
    return tuple(int(c * factor) for c in colour)


def _both(image, alpha, points, colour):
    _fill(image, points, colour)
    _fill(alpha, points, 255)


def _arc(cx, cy, rx, ry, start=0.0, end=360.0, tilt=0.0, count=32):
    t = np.radians(np.linspace(start, end, count))
    x, y = rx * np.cos(t), ry * np.sin(t)
    return np.stack([cx + x * np.cos(tilt) - y * np.sin(tilt), cy + x * np.sin(tilt) + y * np.cos(tilt)], 1)


def _outline(identity):
    t = np.linspace(0, 2 * np.pi, 72, endpoint=False)
    exponent = np.where(np.sin(t) > 0, identity.jaw, identity.forehead)
    x = np.sign(np.cos(t)) * np.abs(np.cos(t)) ** (2 / exponent)
    y = np.sign(np.sin(t)) * np.abs(np.sin(t)) ** (2 / exponent)
    return np.stack([x * np.where(y > 0, 1 - 0.12 * y, 1), y], 1)


def _neck(head, image, alpha):
    w = 0.55
    _both(image, alpha, head.flat([(-w, 0.5), (w, 0.5), (w, 1.55), (-w, 1.55)]), _darker(head.id.skin, 0.78))


def _ears(head, image, alpha):
    seen = []
    for side in (-1, 1):
        away = np.sin(head.yaw) * side  # the ear on the side to which the head turns goes behind it
        r = head.id.ear * max(0.25, 1 - 1.4 * max(0, away))
        ear = head.flat(_arc(side * 1.0, 0.02, r * 0.75, head.id.ear * 1.1))
        _both(image, alpha, ear, _darker(head.id.skin, 0.88))
        seen.append(ear)
    return np.concatenate(seen)


def _shade(image, outline, view):
    low, high = np.floor(outline.min(axis=0)).astype(int), np.ceil(outline.max(axis=0)).astype(int)
    x0, y0, x1, y1 = max(0, low[0]), max(0, low[1]), min(CANVAS, high[0]), min(CANVAS, high[1])
    ys, xs = np.mgrid[y0:y1, x0:x1].astype(np.float32)
    along = ((xs - CENTRE) * np.cos(view.light) + (ys - CENTRE) * np.sin(view.light)) / HALF_HEIGHT
    factor = 1.0 - view.shade * 0.5 * (0.5 + 0.5 * along)
    part = image[y0:y1, x0:x1]
    part[:] = np.clip(part * factor[..., None], 0, 255).astype(np.uint8)


def _features(head, view, image):
    """Draws them; returns the five points."""
    i, points = head.id, {}
    local = _darker(i.skin, 1 - 0.25 * view.shade)
    for x, y, r in i.moles:
        _fill(image, head.project(_arc(x, y, r, r * i.width)), _darker(i.skin, 0.45))
    if i.cheeks > 0.1:
        for side in (-1, 1):
            tint = tuple(int(c * (1 - i.cheeks * f)) for c, f in zip(local, (0.35, 0.4, 0.0)))
            _fill(image, head.project(_arc(side * 0.55, 0.25, 0.16, 0.10)), tint)
    for side, name in ((-1, "left"), (1, "right")):
        points[name] = _eye(head, view, image, side)
    points["nose"] = _nose(head, image, local)
    _beard(head, image)
    points["mouth"] = _mouth(head, view, image)
    if i.glasses != "none":
        _glasses(head, image, i.glasses, (30, 30, 30), None)
    return np.array([points["left"], points["right"], points["nose"], *points["mouth"]])


def _eye(head, view, image, side):
    i = head.id
    open_height = i.eye_height * min(1.2, view.eyes_open)
    tilt = i.eye_tilt * side
    white = head.project(_arc(side * i.eye_x, i.eye_y, i.eye_width, max(0.012, open_height), tilt=tilt))
    _fill(image, white, (238, 240, 242))
    if open_height > 0.03:
        r = min(i.eye_height * 0.95, open_height * 1.05)
        x = side * i.eye_x + view.gaze * i.eye_width * 0.35
        _fill(image, head.project(_arc(x, i.eye_y, r / i.width, r)), i.iris)
        _fill(image, head.project(_arc(x, i.eye_y, r * 0.5 / i.width, r * 0.5)), (10, 10, 10))
    lid = head.project(_arc(side * i.eye_x, i.eye_y, i.eye_width * 1.05, max(0.014, open_height * 1.05), 180, 360, tilt))
    _line(image, lid, (20, 20, 20), 3)
    y = i.eye_y - i.brow_gap - 0.05 * view.brows
    xs = np.linspace(-1, 1, 9)
    brow = np.stack([side * i.eye_x + xs * i.eye_width * 1.25, y + i.brow_tilt * 0.25 * xs * side + 0.035 * xs ** 2], 1)
    _line(image, head.project(brow), _darker(i.hair_colour, 0.75), i.brow_thickness * HALF_HEIGHT)
    return head.project([(side * i.eye_x, i.eye_y)])[0]


def _nose(head, image, local):
    i = head.id
    tip = head.project([(0, i.nose_y)], lift=0.16)[0]
    bridge = head.project([(-0.03, i.eye_y)], lift=0.05)[0]
    wings = head.project([(-i.nose_width, i.nose_y + 0.05), (i.nose_width, i.nose_y + 0.05)], lift=0.03)
    _fill(image, np.array([bridge, wings[0], tip + (0, 3), wings[1]]), _darker(local, 0.92))
    _line(image, np.array([bridge, tip]), _darker(local, 0.72), 2)
    _line(image, np.array([wings[0], tip + (0, 4), wings[1]]), _darker(local, 0.55), 3)
    return tip


def _mouth(head, view, image):
    i = head.id
    w = i.mouth_width * (1 + 0.15 * max(0, view.smile))
    curve = -0.09 * view.smile
    xs = np.linspace(-1, 1, 15)
    line = i.mouth_y - curve * (1 - xs ** 2)
    gap = 0.16 * min(1.0, view.mouth_open) * (1 - xs ** 2)
    upper = np.stack([xs * w, line - i.lip * (1 - xs ** 2)], 1)
    lower = np.stack([xs * w, line + gap + i.lip * 1.2 * (1 - xs ** 2)], 1)
    _fill(image, head.project(np.concatenate([upper, lower[::-1]]), 0.04), i.lips)
    inside = np.concatenate([np.stack([xs * w * 0.9, line], 1), np.stack([xs * w * 0.9, line + gap], 1)[::-1]])
    if view.mouth_open > 0.15:
        _fill(image, head.project(inside, 0.04), (40, 30, 70))
        teeth = np.stack([xs * w * 0.75, line + gap * 0.35], 1)
        _fill(image, head.project(np.concatenate([np.stack([xs * w * 0.75, line], 1), teeth[::-1]]), 0.04), (235, 238, 240))
    else:
        _line(image, head.project(np.stack([xs * w, line], 1), 0.04), _darker(i.lips, 0.5), 2)
    return head.project([(-w, i.mouth_y), (w, i.mouth_y)], 0.04)


def _beard(head, image):
    i = head.id
    colour = _darker(i.hair_colour, 0.9)
    if i.beard in ("full", "stubble"):
        low = _outline(i)
        low = low[low[:, 1] > 0.15]
        low = low[np.argsort(low[:, 0])]
        area = np.concatenate([low, [(0.75, 0.2), (0.45, i.mouth_y - 0.16), (0, i.mouth_y - 0.2), (-0.45, i.mouth_y - 0.16),
                                     (-0.75, 0.2)]])
        before = image.copy()
        _fill(image, head.flat(area), colour)
        if i.beard == "stubble":
            cv2.addWeighted(image, 0.35, before, 0.65, 0, image)
    if i.beard in ("moustache", "full"):
        _fill(image, head.project([(-0.3, i.mouth_y - 0.03), (0, i.mouth_y - 0.17), (0.3, i.mouth_y - 0.03),
                                   (0, i.mouth_y - 0.08)], 0.05), colour)
    if i.beard == "chin":
        _fill(image, head.project(_arc(0, 0.88, 0.24, 0.15)), colour)


def _glasses(head, image, kind, frame, lens):
    i = head.id
    rings = []
    for side in (-1, 1):
        r = 0.19
        ring = _arc(side * i.eye_x, i.eye_y, r / i.width, r) if kind == "round" else \
            np.array([(-0.27, -0.13), (0.27, -0.13), (0.24, 0.16), (-0.24, 0.16)]) + (side * i.eye_x, i.eye_y)
        ring = head.project(ring, 0.08)
        if lens is not None:
            _fill(image, ring, lens)
        _line(image, np.concatenate([ring, ring[:1]]), frame, 4)
        rings.append(ring)
    _line(image, head.project([(-i.eye_x + 0.22, i.eye_y), (i.eye_x - 0.22, i.eye_y)], 0.1), frame, 4)


def _back_hair(head, image, alpha):
    if head.id.hair in ("long", "curly"):
        points = _arc(0, -0.15, 1.28, 1.12, 180, 360)
        low = 1.25 if head.id.hair == "long" else 0.45
        _both(image, alpha, head.flat(np.concatenate([points, [(1.25, low), (-1.25, low)]])),
              _darker(head.id.hair_colour, 0.8))
    if head.id.hair == "bun":
        _both(image, alpha, head.flat(_arc(0, -1.2, 0.4, 0.32)), head.id.hair_colour)


def _hair(head, image, alpha):
    i = head.id
    if i.hair == "bald":
        return
    top = _arc(0, -0.25, 1.10, 0.95, 180, 360)
    left, right = 1.10, -1.10
    if i.hair == "parted":
        edge = [(left, -0.15), (0.9, -0.5), (0.35, i.fringe - 0.15), (-0.5, i.fringe - 0.05), (-0.9, -0.3), (right, -0.1)]
    elif i.hair == "curly":
        xs = np.linspace(left, right, 14)
        edge = [(x, i.fringe + (0.1 if k % 2 else -0.05) + 0.35 * abs(x) ** 3) for k, x in enumerate(xs)]
    else:
        edge = [(left, -0.1), (0.92, -0.35), (0.6, i.fringe), (0, i.fringe - 0.08), (-0.6, i.fringe), (-0.92, -0.35),
                (right, -0.1)]
    _both(image, alpha, head.flat(np.concatenate([top, edge])), i.hair_colour)


# ----- What covers a face --------------------------------------------------------------------------


def _mask(head, view, image, alpha):
    colour = [(230, 225, 215), (200, 150, 90), (40, 40, 40)][int(abs(view.gaze) * 2.99)]
    y = head.id.nose_y - 0.08
    area = head.project([(-0.95, y - 0.1), (0, y - 0.12), (0.95, y - 0.1), (0.85, 0.7), (0.4, 0.98), (-0.4, 0.98),
                         (-0.85, 0.7)], 0.1)
    _fill(image, area, colour)
    for k in (0.35, 0.6):
        _line(image, head.project([(-0.8, y + k * 0.8), (0.8, y + k * 0.8)], 0.12), _darker(colour, 0.8), 2)


def _sunglasses(head, view, image, alpha):
    _glasses(head, image, "square" if view.gaze > 0 else "round", (15, 15, 15), (25, 22, 20))


def _cap(head, view, image, alpha):
    colour = [(150, 60, 40), (50, 50, 160), (60, 110, 60), (40, 40, 40)][int(abs(view.gaze) * 3.99)]
    _both(image, alpha, head.flat(np.concatenate([_arc(0, -0.45, 1.15, 0.85, 180, 360), [(1.15, -0.42), (-1.15, -0.42)]])),
          colour)
    _both(image, alpha, head.flat(_arc(0.2 * np.sin(head.yaw), -0.42, 1.05, 0.15)), _darker(colour, 0.7))


def _scarf(head, view, image, alpha):
    colour = [(60, 60, 190), (170, 120, 60), (70, 150, 150)][int(abs(view.gaze) * 2.99)]
    y = head.id.mouth_y - 0.12
    area = head.flat([(-1.2, y), (0, y + 0.1), (1.2, y), (1.25, 1.5), (-1.25, 1.5)])
    _both(image, alpha, area, colour)
    for k in (0.25, 0.5):
        _line(image, head.flat([(-1.1, y + k), (0, y + k + 0.1), (1.1, y + k)]), _darker(colour, 0.75), 4)


def _hand(head, view, image, alpha):
    skin = _darker(head.id.skin, 0.9)
    x = 0.75 if view.gaze > 0 else -0.75
    for k in range(4):
        y = 0.35 + 0.16 * k
        _both(image, alpha, head.flat([(x * 1.9, y), (x * 0.35, y - 0.05), (x * 0.3, y + 0.05), (x * 1.9, y + 0.13)]),
              _darker(skin, 1 - 0.05 * k))


COVERS = {"mask": _mask, "sunglasses": _sunglasses, "cap": _cap, "scarf": _scarf, "hand": _hand}
