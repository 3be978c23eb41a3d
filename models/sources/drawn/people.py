# SPDX-License-Identifier: Apache-2.0
"""Draws whole persons: an articulated body in a pose, dressed, seen from any side, as a cut-out.

A skeleton is posed, turned, looked at a little from above, and its parts, each the hull of a few spheres or rings,
are painted from back to front.
"""
import cv2
import numpy as np

from models.sources.bodies.skeleton import CIRCLE, POSES, Body, Pose, View
from models.sources.drawn.canvas import Canvas, fabric
from models.sources.drawn.paint import fill_polygon, from_hsv, random_colour

SKIN = [from_hsv(h, s, v) for h, s, v in ((0.06, 0.25, 0.95), (0.06, 0.35, 0.9), (0.07, 0.45, 0.8),
                                          (0.06, 0.55, 0.62), (0.05, 0.6, 0.45), (0.05, 0.6, 0.32))]
HAIR = [from_hsv(h, s, v) for h, s, v in ((0.08, 0.5, 0.1), (0.07, 0.6, 0.22), (0.07, 0.6, 0.35), (0.11, 0.55, 0.7),
                                          (0.04, 0.75, 0.5), (0.1, 0.05, 0.65), (0.1, 0.03, 0.85))]


class Clothes:
    def __init__(self, rng, family, width, height):
        def cloth(colour=None):
            return fabric(rng, family, width, height, colour)
        self.skin = SKIN[rng.integers(len(SKIN))] * rng.uniform(0.92, 1.05)
        self.hair = HAIR[rng.integers(len(HAIR))] * rng.uniform(0.8, 1.2)
        self.top = cloth()
        self.bottom = cloth(from_hsv(rng.uniform(0.55, 0.68), rng.uniform(0.1, 0.6), rng.uniform(0.1, 0.5))
                            if rng.random() < 0.5 else None)
        self.shoes = random_colour(rng) * 0.6
        self.sleeves = rng.choice(["long", "long", "short", "none"])
        self.legs = rng.choice(["trousers", "trousers", "trousers", "shorts", "skirt", "dress", "coat"])
        self.hem = {"skirt": rng.uniform(0.4, 1.0), "dress": rng.uniform(0.6, 1.5), "coat": rng.uniform(0.3, 1.2)}.get(
            self.legs, 0)  # in thighs below the hips
        self.flare = rng.uniform(0.03, 0.08)
        if self.legs in ("dress", "coat"):
            self.skirt = self.top
        else:
            self.skirt = self.bottom
        self.stockings = self.bottom if rng.random() < 0.4 or self.legs == "coat" else self.skin
        self.open_front = rng.random() < 0.3
        self.shirt = random_colour(rng)
        self.hair_length = rng.choice([0, 0, 0.4, 1.0])
        self.bald = rng.random() < 0.08
        self.hat = rng.choice(["none", "none", "none", "cap", "beanie", "brim"])
        self.hat_colour = random_colour(rng)
        self.beard = rng.random() < 0.15
        self.bag = rng.choice(["none", "none", "none", "backpack", "handbag", "shoulder"])
        self.bag_colour = cloth()
        self.belt = rng.random() < 0.4


class Painter:
    """Collects the parts with their nearness and paints them from back to front."""

    def __init__(self, canvas, view):
        self.canvas = canvas
        self.view = view
        self.parts = []

    def add(self, nearness, draw):
        self.parts.append((nearness, len(self.parts), draw))

    def hull(self, points_in_space, fabric_, nearness, roundness=0.4):
        points = self.view.project(np.array(points_in_space))
        self.add(nearness, lambda: self.canvas.paint(points, fabric_, roundness))

    def limb(self, start, end, start_radius, end_radius, fabric_, bias=0.0):
        outline = np.vstack([self.view.ball(start, start_radius), self.view.ball(end, end_radius)])
        nearness = self.view.nearness((np.asarray(start) + end) / 2) + bias
        self.add(nearness, lambda: self.canvas.paint(outline, fabric_))

    def finish(self):
        for _, _, draw in sorted(self.parts, key=lambda part: part[:2]):
            draw()


def ring(body, height, half_width, half_depth):
    """Points around the trunk at a height along the spine."""
    centre = body.spine * height
    return [centre + np.array([half_width * c, 0, 0]) + body.forward * (half_depth * s) for c, s in CIRCLE]


def add_trunk(painter, body, clothes, view):
    build = body.build
    shoulder = abs(body.shoulders[0][0])
    rings = [ring(body, 0.285, shoulder * 0.75, 0.035), ring(body, 0.25, shoulder + 0.018, 0.055),
             ring(body, 0.15, 0.085 * build ** 0.7, 0.062 * build), ring(body, 0.07, 0.075 * build, 0.06 * build),
             ring(body, -0.02, 0.088 * build ** 0.7, 0.065 * build), ring(body, -0.06, 0.07 * build ** 0.7, 0.055 * build)]
    nearness = view.nearness(body.spine * 0.14)
    painter.hull(rings[4] + rings[5], clothes.skirt if clothes.hem else clothes.bottom, nearness - 0.01)
    trunk = [view.project(np.array(upper + lower)) for upper, lower in zip(rings, rings[1:5])]

    def draw():
        outline = np.zeros(painter.canvas.alpha.shape, np.uint8)
        for part in trunk:
            fill_polygon(outline, cv2.convexHull(np.round(part * 16).astype(np.int32)) / 16, 255)
        x, y, w, h = cv2.boundingRect(outline)
        painter.canvas.cloth(outline[y:y + h, x:x + w], x, y, clothes.top, 0.45)
    painter.add(nearness, draw)
    if clothes.open_front and view.nearness(body.forward) > 0.2:
        front = [centre + body.forward * 0.062 * build + np.array([x, 0, 0])
                 for centre, half in ((body.spine * 0.28, 0.035), (body.spine * 0.0, 0.022))
                 for centre, x in ((centre, -half), (centre, half))]
        painter.hull(front, clothes.shirt, nearness + 0.005, 0.15)
    if clothes.belt:
        painter.hull(ring(body, 0.0, 0.086 * build ** 0.7, 0.065 * build) + ring(body, 0.02, 0.084 * build ** 0.7, 0.064 * build),
                     clothes.shoes, nearness + 0.002, 0.3)
    painter.limb(body.chest, body.neck + (body.head - body.neck) * 0.4, 0.034, 0.03, clothes.skin,
                 0.03 if view.nearness(body.forward) > 0 else 0.0)


def add_legs(painter, body, clothes, view):
    build = body.build ** 0.6
    for hip, knee, ankle in zip(body.hips, body.knees, body.ankles):
        thigh = clothes.stockings if clothes.hem else clothes.bottom
        shin = clothes.skin if clothes.legs == "shorts" else thigh
        bias = -0.02 if clothes.hem else 0.0
        painter.limb(hip, knee, 0.056 * build, 0.04 * build, thigh, bias)
        painter.limb(knee, ankle, 0.038 * build, 0.026 * build, shin, bias)
        toe = ankle + np.array([0, -0.012, 0.07])
        painter.limb(ankle + np.array([0, -0.01, -0.01]), toe, 0.027, 0.018, clothes.shoes, bias + 0.01)
    if clothes.hem:
        points = ring(body, 0.01, 0.088 * body.build ** 0.7, 0.066 * body.build)
        for hip, knee, ankle in zip(body.hips, body.knees, body.ankles):
            hem = hip + (knee - hip) * min(clothes.hem, 1) + (ankle - knee) * max(clothes.hem - 1, 0)
            radius = 0.05 + clothes.flare * clothes.hem
            points += [hem + np.array([radius * c, 0, radius * s]) for c, s in CIRCLE]
            if clothes.hem > 1:
                points += [knee + np.array([0.05 * c, 0, 0.05 * s]) for c, s in CIRCLE]
        middle = (body.knees[0] + body.knees[1]) / 2
        painter.hull(points, clothes.skirt, view.nearness(middle * 0.5) + 0.07, 0.45)


def add_arms(painter, body, clothes, view):
    build = body.build ** 0.5
    for shoulder, elbow, wrist in zip(body.shoulders, body.elbows, body.wrists):
        upper = clothes.skin if clothes.sleeves == "none" else clothes.top
        lower = clothes.top if clothes.sleeves == "long" else clothes.skin
        outward = np.array([np.sign(shoulder[0]) * 0.03, 0, 0])
        bias = 0.06 if view.nearness(outward) > -0.01 else -0.03  # the far arm of a side view is behind the trunk
        painter.limb(shoulder, elbow, 0.037 * build, 0.028 * build, upper, bias)
        if clothes.sleeves == "short":
            painter.limb(shoulder + (elbow - shoulder) * 0.6, elbow, 0.03 * build, 0.026 * build, clothes.skin, bias + 0.001)
        painter.limb(elbow, wrist, 0.027 * build, 0.021 * build, lower, bias + 0.01)
        hand = wrist + (wrist - elbow) / np.linalg.norm(wrist - elbow) * 0.035
        painter.limb(wrist, hand, 0.018, 0.02, clothes.skin, bias + 0.011)


def add_bag(painter, body, clothes, view, rng):
    if clothes.bag == "backpack":
        back = -body.forward
        points = [body.spine * h + back * d + np.array([x, 0, 0])
                  for h in (0.06, 0.26) for d in (0.06, 0.14) for x in (-0.075, 0.075)]
        painter.hull(points, clothes.bag_colour, view.nearness(body.spine * 0.16 + back * 0.12), 0.3)
    elif clothes.bag != "none":
        side = rng.integers(2)
        top = body.wrists[side] if clothes.bag == "handbag" else np.array([(2 * side - 1) * 0.13, -0.02, 0])
        size = rng.uniform(0.05, 0.09)
        points = [top + np.array([x, y, z]) for x in (-0.025, 0.025) for y in (-0.04, -0.04 - 1.3 * size)
                  for z in (-size, size)]
        bag_nearness = view.nearness(top) + 0.05
        painter.limb(top, top + np.array([0, -0.06, 0]), 0.008, 0.008, clothes.bag_colour, 0.04)
        painter.hull(points, clothes.bag_colour, bag_nearness, 0.3)
        if clothes.bag == "shoulder":
            painter.limb(body.shoulders[1 - side], top, 0.008, 0.008, clothes.bag_colour, 0.12)


def paint_head(canvas, body, clothes, view, turn):
    """The head as an ellipsoid whose every visible point is hair, skin, eye, brow or mouth."""
    centre = view.project(body.head)[0]
    half = body.head_half
    reach = half.max() * view.pixels * 1.15
    left, top = np.floor(centre - reach).astype(int)
    right, bottom = np.ceil(centre + reach).astype(int)
    left, top, right, bottom = max(left, 0), max(top, 0), min(right, canvas.alpha.shape[1]), min(bottom, canvas.alpha.shape[0])
    if right - left < 2 or bottom - top < 2:
        return
    x, y = np.meshgrid(np.arange(left, right), np.arange(top, bottom))
    x = (x - centre[0]) / view.pixels
    y = (centre[1] - y) / view.pixels
    # Solves for the nearest point of the ellipsoid on each line of sight, in the head's own axes.
    to_head = turn.T @ view.rotation.T
    a, b, c = (to_head / half[:, None]).T
    quadratic = c @ c
    linear = x * (a @ c) + y * (b @ c)
    constant = x * x * (a @ a) + 2 * x * y * (a @ b) + y * y * (b @ b) - 1
    root = linear * linear - quadratic * constant
    edge = np.clip(root / (quadratic * 0.04 + 1e-9) + 0.5, 0, 1)
    z = (-linear + np.sqrt(np.maximum(root, 0))) / quadratic
    local = x[..., None] * a + y[..., None] * b + z[..., None] * c
    colour = head_colours(local, clothes)
    normal = local / half @ to_head  # roughly, back in the view's axes
    normal /= np.maximum(np.linalg.norm(normal, axis=-1, keepdims=True), 1e-6)
    light = 0.55 + 0.45 * np.clip(normal @ np.array([canvas.light[0], -canvas.light[1], 0.8]), 0, 1)
    canvas.cover(np.s_[top:bottom, left:right], colour * light[..., None], edge.astype(np.float32))


def head_colours(local, clothes):
    """`local`: points of the unit sphere, x to the left of the face, y up, z out of the face."""
    x, y, z = local[..., 0], local[..., 1], local[..., 2]
    colour = np.broadcast_to(clothes.skin, local.shape).astype(np.float32).copy()
    front = z > 0
    if clothes.beard:
        colour[(y < -0.35) & (z > -0.2)] = clothes.hair
    colour[front & (np.abs(y + 0.5) < 0.05) & (np.abs(x) < 0.28)] = clothes.skin * (0.75, 0.55, 0.8)
    for side in (-1, 1):
        colour[front & (((x - side * 0.38) / 0.17) ** 2 + ((y - 0.08) / 0.09) ** 2 < 1)] = (235, 235, 235)
        colour[front & ((x - side * 0.38) ** 2 + (y - 0.08) ** 2 < 0.0075)] = (40, 35, 30)
        colour[front & (np.abs(x - side * 0.38) < 0.22) & (np.abs(y - 0.25) < 0.04)] = clothes.hair * 0.8
    colour[front & (np.abs(x) < 0.09) & (y < 0.05) & (y > -0.25)] = clothes.skin * 0.88
    if not clothes.bald:
        above, behind, beside = y > 0.5 + 0.25 * np.minimum(z, 0.4), (z < -0.15) & (y > -0.45), (np.abs(x) > 0.88) & (y > -0.1)
        colour[above | behind | beside] = clothes.hair
    if clothes.hat in ("cap", "beanie", "brim"):
        colour[y > (0.4 if clothes.hat == "beanie" else 0.48)] = clothes.hat_colour
    return colour


def add_head(painter, body, clothes, view, rng):
    yaw, nod = rng.uniform(-0.6, 0.6), rng.uniform(-0.35, 0.25)
    cy, sy, cn, sn = np.cos(yaw), np.sin(yaw), np.cos(nod), np.sin(nod)
    turn = np.array([[cy, 0, sy], [0, 1, 0], [-sy, 0, cy]]) @ np.array([[1, 0, 0], [0, cn, -sn], [0, sn, cn]])
    half = body.head_half
    nearness = view.nearness(body.head) + 0.02
    painter.add(nearness, lambda: paint_head(painter.canvas, body, clothes, view, turn))
    nose = body.head + turn @ (half * (0, -0.12, 1.0))
    painter.limb(nose, nose + turn @ (half * (0, 0.2, -0.1)), half[0] * 0.17, half[0] * 0.1, clothes.skin * 0.95,
                 nearness - view.nearness(nose) + (0.01 if view.nearness(turn[:, 2]) > -0.1 else -0.1))
    for side in (-1, 1):
        ear = body.head + turn @ (half * (side * 1.0, -0.05, -0.1))
        bias = 0.001 if view.nearness(turn[:, 0]) * side > 0.25 else -0.09
        painter.limb(ear, ear + turn @ (half * (0, 0.2, 0)), half[0] * 0.2, half[0] * 0.2, clothes.skin * 0.9,
                     nearness - view.nearness(ear) + bias)
    if clothes.hair_length and not clothes.bald:
        end = body.head - body.spine * (half[1] + 0.11 * clothes.hair_length)
        points = [body.head + turn @ (half * (1.08 * c, 0.3 + 0.75 * max(s, 0), -0.25)) for c, s in CIRCLE]
        points += [end - body.forward * 0.03 + np.array([x * half[0], 0, 0]) for x in (-1.15, 1.15)]
        behind = view.nearness(turn[:, 2]) > -0.2
        painter.hull(points, clothes.hair, nearness + (-0.1 if behind else 0.05), 0.35)
    if clothes.hat == "brim":
        brim = [body.head + turn @ (half * (1.6 * c, 0.5, 1.6 * s)) for c, s in CIRCLE]
        painter.hull(brim, clothes.hat_colour * 0.9, nearness + 0.03, 0.2)
        crown = [body.head + turn @ (half * (c, y, s)) for c, s in CIRCLE for y in (0.5, 1.15)]
        painter.hull(crown, clothes.hat_colour, nearness + 0.031, 0.35)
    if clothes.hat == "cap":
        peak = [body.head + turn @ (half * (x, 0.5, z)) for x, z in ((-0.75, 0.6), (0.75, 0.6), (-0.5, 1.7), (0.5, 1.7))]
        painter.hull(peak, clothes.hat_colour * 0.85, nearness + (0.03 if view.nearness(turn[:, 2]) > 0 else -0.1), 0.2)


def paste_head(canvas, body, view, picture, box):
    """Another drawer's head (BGRA, with the box of the face in it) where this body has its own."""
    scale = 1.75 * body.head_half[1] * view.pixels / box[3]
    picture = cv2.resize(picture, None, fx=scale, fy=scale, interpolation=cv2.INTER_AREA)
    chin = view.project(body.head - (0, body.head_half[1], 0))[0]
    left, top = np.round(chin - ((box[0] + box[2] / 2) * scale, (box[1] + box[3]) * scale)).astype(int)
    rows, columns = picture.shape[:2]
    opacity = picture[..., 3].astype(np.float32) / 255
    neck = int((box[1] + box[3] * 1.12) * scale)
    opacity[neck:] = 0
    canvas.cover(np.s_[top:top + rows, left:left + columns], picture[..., :3], opacity)


def draw_person(rng, family, pixels=420, pose=None, yaw=None, change=None, head=None):
    """A cut-out (BGRA, tight) of a person who would be `pixels` tall standing upright.

    pose    one of POSES
    yaw     0: seen from the front; pi: from the back (radians)
    change  a function that is given the Pose to change it: for a film
    head    (BGRA picture, box of its face, skin colour) instead of a head drawn here
    What is not given is random.
    """
    width, height = int(pixels * 1.5), int(pixels * 1.7)
    canvas = Canvas(width, height, light=(rng.uniform(-0.8, 0.8), rng.uniform(-0.9, -0.2)))
    random_yaw = rng.uniform(-np.pi, np.pi) if rng.random() < 0.7 else rng.normal(0, 0.4)
    view = View(random_yaw if yaw is None else yaw, rng.uniform(0, 0.3), pixels, (width / 2, height * 0.5))
    posed = Pose(rng, pose or rng.choice(POSES))
    if change:
        change(posed)
    body = Body(rng, posed)
    clothes = Clothes(rng, family, width, height)
    if head:
        clothes.skin = np.float32(head[2])
    painter = Painter(canvas, view)
    add_trunk(painter, body, clothes, view)
    add_legs(painter, body, clothes, view)
    add_arms(painter, body, clothes, view)
    if head:
        painter.add(view.nearness(body.head) + 0.1, lambda: paste_head(canvas, body, view, *head[:2]))
    else:
        add_head(painter, body, clothes, view, rng)
    add_bag(painter, body, clothes, view, rng)
    painter.finish()
    return canvas.cut_out()
