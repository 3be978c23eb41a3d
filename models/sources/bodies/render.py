# SPDX-License-Identifier: Apache-2.0
"""Triangles seen by a camera under light: colours with their coverage, and which part of the person each pixel shows."""
import dataclasses
from typing import Any, Tuple

import cv2
import moderngl
import numpy as np

# What a vertex has: place, normal, place in the unchanged mesh, colour, material, part, distance from the border of a sheet.
FIELDS = ("place", "normal", "rest", "colour", "material", "part", "inside")
WIDTHS = (3, 3, 3, 3, 1, 1, 1)
SKIN, EYE, HAIR, CLOTH, PLAIN = range(5)  # materials
SAMPLES = 2  # each pixel is the mean of so many by so many

VERTEX = """
#version 330
uniform mat4 seen;
in vec3 place, normal, rest, colour;
in float material, part, inside;
out vec3 at, facing, origin, paint;
flat out float kind, of_part;
out float within;
void main() {
  gl_Position = seen * vec4(place, 1.0);
  at = place; facing = normal; origin = rest; paint = colour; kind = material; of_part = part; within = inside;
}
"""
FRAGMENT = """
#version 330
uniform vec3 eye, sun, sun_colour, sky, ground;
uniform float gloss, seed, pattern;
in vec3 at, facing, origin, paint;
flat in float kind, of_part;
in float within;
layout(location = 0) out vec4 colour;
layout(location = 1) out float identity;

float random(vec3 cell) { return fract(sin(dot(cell + seed, vec3(127.1, 311.7, 74.7))) * 43758.5453); }
float noise(vec3 p) {
  vec3 c = floor(p), f = fract(p);
  f = f * f * (3.0 - 2.0 * f);
  vec4 near = vec4(random(c), random(c + vec3(1, 0, 0)), random(c + vec3(0, 1, 0)), random(c + vec3(1, 1, 0)));
  c.z += 1.0;
  vec4 far = vec4(random(c), random(c + vec3(1, 0, 0)), random(c + vec3(0, 1, 0)), random(c + vec3(1, 1, 0)));
  vec4 a = mix(near, far, f.z);
  return mix(mix(a.x, a.y, f.x), mix(a.z, a.w, f.x), f.y);
}
void main() {
  vec3 n = normalize(facing), view = normalize(eye - at);
  if (dot(n, view) < 0.0) n = -n;
  vec3 base = paint;
  float shine = gloss, soft = 0.0;
  if (kind < 0.5) {  // skin
    base *= 0.86 + 0.16 * noise(origin * 5.0) + 0.08 * noise(origin * 22.0);
    soft = 0.25;
  } else if (kind < 1.5) {  // an eye, brighter than its place deserves, dark at the lids
    vec3 from = origin - vec3(sign(origin.x) * 0.3077, 7.284, 1.245);
    float around = normalize(from).z;
    base = around > 0.965 ? vec3(0.015) : around > 0.88 ? paint : vec3(0.72, 0.68, 0.66) * smoothstep(0.4, 0.8, around);
    shine = 0.8;
  } else if (kind < 2.5) {  // hair, brows: strands, thin at the borders of a sheet
    if (within < 0.75 * noise(origin * vec3(34.0, 9.0, 34.0)) ) discard;
    base *= 0.55 + 0.7 * noise(origin * vec3(26.0, 5.0, 26.0)) * (0.6 + 0.4 * noise(origin * 3.0));
    shine *= 0.6;
  } else if (kind < 3.5) {  // cloth, at times with stripes or checks, and folds
    float across = fract(origin.x * 2.3), up = fract(origin.y * 2.3);
    if (pattern > 2.5) base *= up < 0.5 ? 0.45 : 1.0;
    else if (pattern > 1.5) base *= ((across < 0.5) != (up < 0.5)) ? 0.6 : 1.0;
    else if (pattern > 0.5) base *= across < 0.3 ? 0.5 : 1.0;
    n = normalize(n + 0.5 * vec3(noise(origin * 2.2) - 0.5, noise(origin * 2.2 + 9.0) - 0.5, noise(origin * 2.2 + 5.0) - 0.5));
    base *= 0.9 + 0.2 * noise(origin * 30.0);
    shine *= 0.2;
  }
  float lit = max((dot(n, sun) + soft) / (1.0 + soft), 0.0);
  vec3 light = sun_colour * lit + mix(ground, sky, 0.5 + 0.5 * n.y) * (0.75 + 0.25 * dot(n, view));
  // Little light comes under a chin, into armpits, between legs.
  if (kind < 0.5) light *= mix(0.5, 1.0, smoothstep(0.0, 0.5, length(vec2(origin.y - 6.0, origin.z - 0.7))));
  float spot = pow(max(dot(n, normalize(sun + view)), 0.0), 24.0);
  vec3 seen = base * light + sun_colour * spot * shine;
  colour = vec4(pow(clamp(seen, 0.0, 1.0), vec3(0.4545)), 1.0);
  identity = of_part / 255.0;
}
"""


@dataclasses.dataclass
class Camera:
    """At `eye`, looking at `target`; `scale` pixels a radian in the middle."""
    eye: Any
    target: Any
    scale: float
    roll: float = 0.0

    def axes(self) -> Any:
        """Rows: right, up, towards the camera."""
        back = np.subtract(self.eye, self.target)
        back = back / np.linalg.norm(back)
        right = np.cross((0, 1, 0), back)
        right /= np.linalg.norm(right)
        up = np.cross(back, right)
        c, s = np.cos(self.roll), np.sin(self.roll)
        return np.array([c * right + s * up, c * up - s * right, back])

    def project(self, places: Any, size: Tuple[int, int]) -> Any:
        """Pixels [n, 2] of places [n, 3], from the left and from the top of a picture of this size."""
        seen = (np.atleast_2d(places) - self.eye) @ self.axes().T
        return np.array(size) / 2 + seen[:, :2] * (self.scale, -self.scale) / -seen[:, 2:]

    def matrix(self, size: Tuple[int, int], near: float = 1.0, far: float = 1000.0) -> Any:
        axes = self.axes()
        view = np.eye(4)
        view[:3, :3], view[:3, 3] = axes, -axes @ np.asarray(self.eye, float)
        lens = np.zeros((4, 4))
        lens[0, 0], lens[1, 1] = 2 * self.scale / size[0], 2 * self.scale / size[1]
        lens[2, 2:] = -(far + near) / (far - near), -2 * far * near / (far - near)
        lens[3, 2] = -1
        return lens @ view


@dataclasses.dataclass
class Light:
    """Colours are of light as it is, not as a picture holds it."""
    direction: Any  # where it comes from
    colour: Any
    sky: Any  # what comes from above
    ground: Any  # and from below
    gloss: float = 0.05
    seed: float = 0.0
    pattern: int = 0  # of cloth: none, stripes, checks, hoops


class Renderer:
    """Draws without a display and without a graphics card."""

    def __init__(self) -> None:
        self.context = moderngl.create_context(standalone=True, backend="egl")
        self.program = self.context.program(vertex_shader=VERTEX, fragment_shader=FRAGMENT)
        self.targets: dict = {}

    def render(self, vertices: Any, triangles: Any, camera: Camera, light: Light, size: Tuple[int, int]) -> Tuple[Any, Any]:
        """Width and height in pixels. BGRA, and the parts (0: nothing), the latter SAMPLES times as large."""
        large = (size[0] * SAMPLES, size[1] * SAMPLES)
        if large not in self.targets:
            self.targets[large] = self.context.framebuffer([self.context.texture(large, 4), self.context.texture(large, 1)],
                                                           self.context.depth_renderbuffer(large))
        target = self.targets[large]
        target.use()
        target.clear()
        self.context.enable(moderngl.DEPTH_TEST)
        for name, value in (("eye", camera.eye), ("sun", light.direction / np.linalg.norm(light.direction)),
                            ("sun_colour", light.colour), ("sky", light.sky), ("ground", light.ground)):
            self.program[name] = tuple(map(float, value))
        self.program["gloss"], self.program["seed"], self.program["pattern"] = light.gloss, light.seed, float(light.pattern)
        self.program["seen"].write(camera.matrix(size).T.astype("f4").tobytes())
        buffers = [self.context.buffer(np.ascontiguousarray(vertices, "f4")),
                   self.context.buffer(np.ascontiguousarray(triangles, "i4"))]
        array = self.context.vertex_array(self.program, [(buffers[0], " ".join(f"{w}f" for w in WIDTHS), *FIELDS)], buffers[1])
        array.render()
        pixels = np.frombuffer(target.read(components=4, attachment=0), np.uint8).reshape(large[1], large[0], 4)[::-1]
        parts = np.frombuffer(target.read(components=1, attachment=1, alignment=1), np.uint8).reshape(large[::-1])[::-1]
        for thing in (array, *buffers):
            thing.release()
        return smaller(pixels, size), parts.copy()


def smaller(pixels: Any, size: Tuple[int, int]) -> Any:
    """RGBA that covers a pixel or not, to BGRA whose colour is that of what covers it."""
    alpha = pixels[..., 3:].astype(np.float32)
    share = cv2.resize(alpha, size, interpolation=cv2.INTER_AREA)
    colour = cv2.resize(pixels[..., 2::-1] * (alpha / 255), size, interpolation=cv2.INTER_AREA)
    colour /= np.maximum(share, 1e-3)[..., None] / 255
    return np.dstack([colour, share]).round().clip(0, 255).astype(np.uint8)
