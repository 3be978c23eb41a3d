# SPDX-License-Identifier: Apache-2.0
"""Draws things as cut-outs: cats, dogs, cars and parcels, and furniture and trees that are none of them.

The same axes and view as in people.py: y up, z forward, sizes relative to the thing's own.
"""
import numpy as np

from models.sources.bodies.skeleton import CIRCLE, View
from models.sources.drawn.canvas import Canvas, fabric, smooth_noise
from models.sources.drawn.paint import from_hsv, random_colour
from models.sources.drawn.people import Painter

KINDS = ("cat", "dog", "car", "parcel")  # in the order of the classes
DISTRACTORS = ("chair", "coat_stand", "tree", "post", "plant", "table")
FUR = [from_hsv(h, s, v) for h, s, v in ((0.08, 0.55, 0.75), (0.07, 0.6, 0.45), (0.1, 0.1, 0.9), (0.1, 0.05, 0.5),
                                         (0.08, 0.3, 0.15), (0.09, 0.35, 0.85), (0.06, 0.65, 0.6))]


def fur(rng, family, pixels):
    colour = FUR[rng.integers(len(FUR))] * rng.uniform(0.85, 1.1)
    if rng.random() < 0.6:
        return colour, fabric(rng, family, pixels, pixels, colour, FUR[rng.integers(len(FUR))])
    return colour, colour * (1 + 0.15 * smooth_noise(rng, pixels, pixels, pixels / 30)[..., None])


def side_yaw(rng):
    """Mostly from the side, sometimes from the front."""
    return rng.choice([-1, 1]) * rng.normal(np.pi / 2, 0.45)


def draw_animal(canvas, view, rng, family, is_cat):
    pixels = canvas.alpha.shape[0]
    colour, coat = fur(rng, family, pixels)
    pale = colour * 0.4 + np.array([215, 225, 230], np.float32) * 0.6 if rng.random() < 0.5 else coat
    painter = Painter(canvas, view)
    leg = rng.uniform(0.16, 0.2) if is_cat else rng.uniform(0.2, 0.32)
    stout = rng.uniform(0.07, 0.095) if is_cat else rng.uniform(0.08, 0.12)
    length = rng.uniform(0.3, 0.36) if is_cat else rng.uniform(0.36, 0.46)
    sitting = rng.random() < (0.45 if is_cat else 0.3)
    rump = np.array([0, stout if sitting else leg + stout * 0.7, -length / 2])
    chest = np.array([0, rump[1] + (length * 0.75 if sitting else 0.02), length * (0.05 if sitting else 0.5)])
    painter.limb(rump, chest, stout * (1.25 if sitting else 1.0), stout, coat)
    for side in (-1, 1):
        out = np.array([side * stout * 0.6, 0, 0])
        stride = 0 if sitting else rng.uniform(-0.07, 0.07)
        front = chest + out - (0, stout * 0.3, 0)
        foot = np.array([front[0], 0.015, front[2] + (0.02 if sitting else stride)])
        painter.limb(front, foot, 0.034, 0.022, coat)
        painter.limb(foot, foot + (0, 0, 0.035), 0.024, 0.02, pale)
        if sitting:
            painter.limb(rump + out, rump + out * 1.5 + (0, -0.03, 0.11), stout * 0.85, 0.04, coat, 0.01)
            painter.limb(rump + out * 1.5 + (0, 0.02 - rump[1], 0.06), rump + out * 1.5 + (0, 0.02 - rump[1], 0.15), 0.024,
                         0.02, pale, 0.02)
        else:
            knee = rump + out + (0, -leg * 0.45, -0.02 - stride / 2)
            painter.limb(rump + out, knee, 0.05, 0.03, coat)
            foot = np.array([knee[0], 0.015, knee[2] - 0.01 - stride / 2])
            painter.limb(knee, foot, 0.028, 0.02, coat)
            painter.limb(foot, foot + (0, 0, 0.035), 0.023, 0.02, pale)
    add_tail(painter, rng, rump, stout, coat, is_cat, sitting)
    add_animal_head(painter, view, rng, chest, stout, coat, colour, pale, is_cat)
    if rng.random() < 0.3:
        painter.limb(chest + (0, 0.05, 0.05), chest + (0, 0.055, 0.055), stout * 0.8, stout * 0.8, random_colour(rng), 0.01)
    painter.finish()


def add_tail(painter, rng, rump, stout, coat, is_cat, sitting):
    at = rump + (0, stout * (-0.6 if sitting else 0.5), -stout * 0.8)
    angle = rng.uniform(-0.3, 1.3) if not sitting else rng.uniform(-0.2, 0.3)
    curl = rng.uniform(-0.5, 0.7)
    step = rng.uniform(0.055, 0.075) if is_cat else rng.uniform(0.025, 0.055)
    radius = rng.uniform(0.016, 0.024) if is_cat else rng.uniform(0.016, 0.04)
    for i in range(5):
        end = at + (0.02 * np.sin(i + angle), np.sin(angle) * step, -np.cos(angle) * step)
        painter.limb(at, end, radius, radius * (0.95 if is_cat else 0.8), coat)
        at, angle, radius = end, angle + curl, radius * (0.95 if is_cat else 0.8)


def add_animal_head(painter, view, rng, chest, stout, coat, colour, pale, is_cat):
    radius = rng.uniform(0.085, 0.105) if is_cat else rng.uniform(0.075, 0.095)
    head = chest + (0, stout + radius * (0.5 if is_cat else 0.9), stout * 0.7)
    painter.limb(chest + (0, stout * 0.3, 0.02), head, stout * 0.75, radius * 0.75, coat, 0.005)
    yaw = rng.uniform(-0.9, 0.9)
    cy, sy = np.cos(yaw), np.sin(yaw)
    turn = np.array([[cy, 0, sy], [0, 1, 0], [-sy, 0, cy]])
    dark = np.array([35, 30, 30], np.float32)

    def at(x, y, z):
        return head + turn @ (np.array([x, y, z]) * radius)
    base = view.nearness(head) + 0.03

    def spot(point, size, fabric_, order, end=None, end_size=None):
        middle = (point + (point if end is None else end)) / 2
        facing = view.nearness(middle) - view.nearness(head)
        painter.limb(point, point if end is None else end, size, end_size or size, fabric_,
                     base + (order if facing > 0.15 * radius else -order) - view.nearness(middle))
    spot(at(-0.18, 0, 0), radius * 0.85, coat, 0, at(0.18, 0, 0), radius * 0.85)
    ear = coat if rng.random() < 0.3 else coat * rng.uniform(0.4, 0.65)
    for side in (-1, 1):
        if not is_cat:  # long ears that hang
            painter.limb(at(side * 0.85, 0.5, 0), at(side * 1.1, -0.85, 0.1), radius * 0.28, radius * 0.4, ear,
                         base + 0.02 * side * np.sign(view.nearness(turn[:, 0])) - view.nearness(head))
        else:
            tip, wide = 1.75, 0.34
            painter.hull([at(side * 0.6 - wide, 0.65, 0), at(side * 0.6 + wide, 0.6, 0), at(side * 0.8, tip, -0.05),
                          at(side * 0.6, 0.5, 0.25)], coat, base + 0.001)
            painter.hull([at(side * 0.6 - wide * 0.5, 0.8, 0.1), at(side * 0.6 + wide * 0.5, 0.75, 0.1),
                          at(side * 0.77, tip * 0.88, 0)], colour * 0.6 + np.array([70, 60, 90], np.float32),
                         base + (0.002 if view.nearness(turn[:, 2]) > 0 else -0.001), 0.1)
        spot(at(side * 0.4, 0.2, 0.72), radius * (0.17 if is_cat else 0.12),
             from_hsv(rng.uniform(0.13, 0.35), 0.7, 0.8) if is_cat else dark, 0.006)
        if is_cat:
            spot(at(side * 0.4, 0.26, 0.78), radius * 0.07, dark, 0.007, at(side * 0.4, 0.14, 0.78))
    reach = rng.uniform(0.85, 1.0) if is_cat else rng.uniform(1.5, 1.9)
    spot(at(0, -0.3, 0.45), radius * 0.48, pale, 0.004, at(0, -0.32, reach - 0.3), radius * (0.36 if is_cat else 0.33))
    spot(at(0, -0.12, reach - (0.1 if is_cat else 0.05)), radius * (0.1 if is_cat else 0.17), dark, 0.009)


def paint_prism(canvas, view, near, far, fabric_, roundness=0.08):
    """Two alike convex outlines (N x 3, in parallel planes) and what lies between them."""
    near, far = np.asarray(near, float), np.asarray(far, float)
    middle = (near.mean(axis=0) + far.mean(axis=0)) / 2
    faces = [near, far] + [np.array([near[i - 1], near[i], far[i], far[i - 1]]) for i in range(len(near))]
    for face in faces:
        paint_face(canvas, view, face, middle, fabric_, roundness)


def paint_face(canvas, view, face, inside, fabric_, roundness=0.08):
    """A plane face, if it looks at the viewer; its light depends on where it looks."""
    normal = np.cross(face[1] - face[0], face[2] - face[0])
    normal = normal / max(float(np.linalg.norm(normal)), 1e-9)
    if normal @ (face.mean(axis=0) - inside) < 0:
        normal = -normal
    seen = view.rotation @ normal
    if seen[2] <= 0.02:
        return
    light = 0.62 + 0.4 * max(0, seen @ np.array([canvas.light[0], -canvas.light[1], 0.6]) / 1.2)
    canvas.paint(view.project(face), fabric_ * np.float32(light), roundness)


def draw_car(canvas, view, rng, family):
    pixels = canvas.alpha.shape[0]
    paint = fabric(rng, family, pixels, pixels) if rng.random() < 0.15 else random_colour(rng)
    glass = from_hsv(0.57, 0.25, rng.uniform(0.15, 0.5))
    half_width, height = rng.uniform(0.18, 0.21), rng.uniform(0.15, 0.19)
    roof = height + rng.uniform(0.11, 0.17)
    bonnet = rng.uniform(0.1, 0.28)  # its length; short: a van
    boot = rng.choice([0.0, 0.02, rng.uniform(0.08, 0.2)])
    wheel = rng.uniform(0.07, 0.085)

    def outline(points, x):
        return [np.array([x, y, z]) for z, y in points]
    low = 0.055
    nose = height * rng.uniform(0.75, 1)
    body = [(-0.5, low), (0.5, low), (0.5, nose), (0.5 - bonnet, height), (-0.5, height)]
    cabin = [(0.5 - bonnet, height), (0.5 - bonnet - rng.uniform(0.06, 0.14), roof), (-0.5 + boot + 0.05, roof),
             (-0.5 + boot, height)]
    for point in outline(body[:2], half_width) + outline(body[:2], -half_width):  # the dark under it
        canvas.paint(view.ball(point * (0.9, 1, 0.8), 0.04), np.array([25, 25, 25], np.float32), 0)
    for side in (-1, 1):  # the wheels of the far side first
        if view.nearness(np.array([side, 0, 0])) < 0:
            paint_wheels(canvas, view, side * half_width, wheel)
    paint_prism(canvas, view, outline(body, half_width), outline(body, -half_width), paint)
    narrow = half_width * 0.9
    middle = np.array([0, height, 0])
    paint_prism(canvas, view, outline(cabin, narrow), outline(cabin, -narrow), paint)
    for side in (-1, 1):
        window = np.array(outline(cabin, side * narrow))
        centre = window.mean(axis=0)
        panes = [(centre + (window - centre) * (1, 0.7, 0.86))]
        split = rng.uniform(-0.1, 0.02)
        for low_z, high_z in ((-1, split - 0.012), (split + 0.012, 1)):
            pane = panes[0].copy()
            pane[:, 2] = np.clip(pane[:, 2], max(low_z, pane[:, 2].min()), min(high_z, pane[:, 2].max()))
            paint_face(canvas, view, pane, middle, glass, 0.05)
        if view.nearness(np.array([side, 0, 0])) > 0:
            paint_wheels(canvas, view, side * half_width, wheel)
            door = [np.array([side * half_width, y, z]) for y, z in ((low + 0.02, split), (height, split))]
            canvas.paint(np.vstack([view.ball(point, 0.003) for point in door]), np.array([40, 40, 40], np.float32), 0)
    for i, j in ((0, 1), (2, 3)):  # windscreen, rear window
        ends = [np.array([x, y, z]) for (z, y) in (cabin[i], cabin[j]) for x in (-narrow, narrow)]
        pane = np.array([ends[0], ends[1], ends[3], ends[2]])
        centre = pane.mean(axis=0)
        paint_face(canvas, view, centre + (pane - centre) * 0.85, middle, glass, 0.05)
    for z, colour in ((0.5, np.array([225, 245, 250], np.float32)), (-0.5, np.array([40, 30, 200], np.float32))):
        if view.nearness(np.array([0, 0, z])) > 0.05:
            for x in (-0.75, 0.75):
                lamp = np.array([x * half_width, nose * 0.75, z])
                canvas.paint(view.project(lamp + np.array([(0.035 * c, 0.02 * s, 0) for c, s in CIRCLE])), colour, 0.2)
            plate = np.array([0, low + 0.035, z])
            canvas.paint(view.project(plate + np.array([(x, y, 0) for x in (-.05, .05) for y in (-.012, .012)])),
                         np.array([220, 230, 230], np.float32), 0)


def paint_wheels(canvas, view, x, radius):
    for z in (-0.3, 0.31):
        for size, colour in ((1, (28, 28, 28)), (0.6, (165, 165, 165)), (0.2, (60, 60, 60))):
            rim = np.array([(x, radius + radius * size * s, z + radius * size * c) for c, s in CIRCLE])
            canvas.paint(view.project(rim), np.array(colour, np.float32), 0.15)


def draw_parcel(canvas, view, rng, family):
    pixels = canvas.alpha.shape[0]
    colour = from_hsv(rng.uniform(0.075, 0.11), rng.uniform(0.3, 0.55), rng.uniform(0.5, 0.88)) if rng.random() < 0.8 \
        else random_colour(rng)
    surface = colour * (1 + 0.08 * smooth_noise(rng, pixels, pixels, pixels / 20)[..., None])
    x, z, height = rng.uniform(0.16, 0.34), rng.uniform(0.16, 0.34), rng.uniform(0.14, 0.6)
    corners = np.array([(-x, -z), (x, -z), (x, z), (-x, z)])

    def level(y):
        return np.array([(cx, y, cz) for cx, cz in corners])
    middle = np.array([0, height / 2, 0])
    paint_prism(canvas, view, level(0), level(height), surface)
    tape = from_hsv(rng.uniform(0.08, 0.12), rng.uniform(0.1, 0.6), rng.uniform(0.6, 0.95))
    wide = 0.025
    strip = np.array([(-wide, height, -z), (wide, height, -z), (wide, height, z), (-wide, height, z)])
    paint_face(canvas, view, strip, middle, tape)
    for end in (-z, z):
        paint_face(canvas, view, np.array([(-wide, height, end), (wide, height, end), (wide, height * 0.75, end),
                                           (-wide, height * 0.75, end)]),
                   middle, tape)
    if rng.random() < 0.7:
        label = np.array([235, 238, 238], np.float32)
        at, size = rng.uniform(-0.4, 0.2) * x, rng.uniform(0.3, 0.5)
        for end in (-z, z):
            top, bottom = height * 0.62, height * (0.62 - size)
            paint_face(canvas, view, np.array([(at, top, end), (at + x * 0.7, top, end), (at + x * 0.7, bottom, end),
                                               (at, bottom, end)]), middle, label, 0)
            for row in (0.3, 0.55, 0.75):
                y = top + (bottom - top) * row
                line = np.array([(at + 0.06 * x, y, end), (at + x * 0.6, y, end), (at + x * 0.6, y - 0.008, end),
                                 (at + 0.06 * x, y - 0.008, end)])
                paint_face(canvas, view, line, middle, np.array([50, 50, 50], np.float32), 0)


def draw_chair(canvas, view, rng, family):
    pixels = canvas.alpha.shape[0]
    wood, seat = random_colour(rng), fabric(rng, family, pixels, pixels)
    painter = Painter(canvas, view)
    height, back = rng.uniform(0.3, 0.4), rng.uniform(0.7, 0.95)
    for x in (-0.18, 0.18):
        painter.limb(np.array([x, 0, -0.18]), np.array([x, back, -0.2]), 0.02, 0.02, wood)
        painter.limb(np.array([x, 0, 0.18]), np.array([x, height, 0.18]), 0.02, 0.02, wood)
    painter.hull([(x, y, z) for x in (-0.21, 0.21) for y in (height, height + 0.05) for z in (-0.21, 0.21)], seat,
                 view.nearness(np.array([0, height, 0])))
    slats = rng.integers(1, 5)
    for i in range(slats):
        y = height + 0.1 + (back - height - 0.1) * (i + 0.5) / slats
        half = (back - height - 0.1) / slats * rng.uniform(0.25, 0.5)
        painter.hull([(x, y + dy, -0.19) for x in (-0.18, 0.18) for dy in (-half, half)], seat if slats < 3 else wood,
                     view.nearness(np.array([0, y, -0.19])))
    painter.finish()


def draw_coat_stand(canvas, view, rng, family):
    pixels = canvas.alpha.shape[0]
    wood = random_colour(rng) * 0.7
    painter = Painter(canvas, view)
    top = np.array([0, 0.98, 0])
    painter.limb(np.zeros(3), top, 0.018, 0.015, wood)
    for angle in np.linspace(0, 2 * np.pi, 4, endpoint=False):
        out = np.array([np.cos(angle), 0, np.sin(angle)])
        painter.limb(np.array([0, 0.08, 0]), out * 0.17, 0.014, 0.012, wood)
        painter.limb(np.array([0, 0.9, 0]), out * 0.1 + (0, 0.95, 0), 0.01, 0.012, wood)
        if rng.random() < 0.6:  # a coat hangs there
            cloth = fabric(rng, family, pixels, pixels)
            length = rng.uniform(0.3, 0.6)
            hang = out * 0.1 + (0, 0.92, 0)
            wide = rng.uniform(0.05, 0.1)
            painter.hull([hang, hang + (-wide * 0.6, -0.06, 0), hang + (wide * 0.6, -0.06, 0),
                          hang + out * 0.05 + (-wide, -length, 0),
                          hang + out * 0.05 + (wide, -length, 0)], cloth, view.nearness(hang))
    if rng.random() < 0.4:
        painter.limb(top, top + (0, 0.02, 0), 0.06, 0.05, random_colour(rng), 0.05)
    painter.finish()


def draw_tree(canvas, view, rng, family):
    bark = from_hsv(0.07, rng.uniform(0.2, 0.6), rng.uniform(0.2, 0.5))
    painter = Painter(canvas, view)
    painter.limb(np.zeros(3), np.array([rng.uniform(-0.05, 0.05), 0.6, 0]), rng.uniform(0.03, 0.06), 0.025, bark)
    leaf = from_hsv(rng.uniform(0.2, 0.42), rng.uniform(0.3, 0.8), rng.uniform(0.25, 0.7))
    for _ in range(rng.integers(8, 22)):
        at = np.array([rng.normal(0, 0.13), rng.uniform(0.5, 0.88), rng.normal(0, 0.1)])
        painter.limb(at, at + (0.03, 0.02, 0), rng.uniform(0.05, 0.12), rng.uniform(0.05, 0.1), leaf * rng.uniform(0.75, 1.2))
    painter.finish()


def draw_post(canvas, view, rng, family):
    pixels = canvas.alpha.shape[0]
    surface = fabric(rng, family, pixels, pixels)
    painter = Painter(canvas, view)
    radius = rng.uniform(0.015, 0.09)
    painter.limb(np.zeros(3), np.array([0, 0.9, 0]), radius, radius * rng.uniform(0.6, 1), surface)
    if rng.random() < 0.6:  # a lamp, a sign
        size = rng.uniform(0.04, 0.13)
        outline = CIRCLE if rng.random() < 0.5 else [(-1, -0.6), (1, -0.6), (1, 0.6), (-1, 0.6)]
        shape = [np.array([x * size, 0.9 + y * size, 0.01]) for x, y in outline]
        painter.hull(shape, random_colour(rng), 1, 0.2)
    painter.finish()


def draw_plant(canvas, view, rng, family):
    pixels = canvas.alpha.shape[0]
    painter = Painter(canvas, view)
    pot = rng.uniform(0.15, 0.3)
    painter.hull([(0.13 * c * f, y, 0.13 * s * f) for c, s in CIRCLE for y, f in ((0, 0.7), (pot, 1))],
                 fabric(rng, family, pixels, pixels), 0.1)
    leaf = from_hsv(rng.uniform(0.22, 0.42), rng.uniform(0.4, 0.8), rng.uniform(0.25, 0.7))
    for _ in range(rng.integers(7, 20)):
        tip = np.array([rng.normal(0, 0.2), rng.uniform(pot + 0.1, 0.95), rng.normal(0, 0.15)])
        root = np.array([0, pot, 0])
        side = np.array([0.5, 0.2, 0]) * rng.uniform(0.05, 0.12)
        middle = root + (tip - root) * 0.6
        painter.hull([root, middle + side, tip, middle - side], leaf * rng.uniform(0.7, 1.25), view.nearness(tip), 0.25)
    painter.finish()


def draw_table(canvas, view, rng, family):
    pixels = canvas.alpha.shape[0]
    wood = fabric(rng, family, pixels, pixels, from_hsv(rng.uniform(0.05, 0.12), rng.uniform(0.1, 0.7), rng.uniform(0.2, 0.9)))
    x, z, height = rng.uniform(0.3, 0.48), rng.uniform(0.15, 0.3), rng.uniform(0.25, 0.45)
    painter = Painter(canvas, view)
    for cx in (-x, x):
        for cz in (-z, z):
            painter.limb(np.array([cx, 0, cz]) * 0.92, np.array([cx, height, cz]) * (0.92, 1, 0.92), 0.022, 0.025, wood)
    painter.finish()
    corners = [(-x, -z), (x, -z), (x, z), (-x, z)]
    paint_prism(canvas, view, [(cx, height, cz) for cx, cz in corners], [(cx, height + 0.04, cz) for cx, cz in corners], wood)


def draw_object(rng, family, kind, pixels=320):
    """A cut-out (BGRA, tight) of one of KINDS or DISTRACTORS."""
    canvas = Canvas(int(pixels * 1.3), int(pixels * 1.3), light=(rng.uniform(-0.8, 0.8), rng.uniform(-0.9, -0.2)))
    animal = kind in ("cat", "dog")
    yaw = side_yaw(rng) if animal or kind == "car" else rng.uniform(-np.pi, np.pi)
    view = View(yaw, rng.uniform(0.05, 0.45 if kind in ("parcel", "car") else 0.3), pixels, (pixels * 0.65, pixels * 1.05))
    if animal:
        draw_animal(canvas, view, rng, family, kind == "cat")
    else:
        globals()["draw_" + kind](canvas, view, rng, family)
    return canvas.cut_out()
