# SPDX-License-Identifier: Apache-2.0
"""A person's skeleton in a pose, and where it is seen from.

In space: x to the person's left, y up, z where the person looks; the height is 1.
"""
import numpy as np

POSES = ("stand", "stand", "walk", "walk", "sit", "bend", "arms_up", "carry", "crouch")
CIRCLE = [(np.cos(a), np.sin(a)) for a in np.linspace(0, 2 * np.pi, 14, endpoint=False)]


class View:
    """Where the drawing is seen from: turned by yaw about the vertical, from above by pitch (radians)."""

    def __init__(self, yaw, pitch, pixels, origin):
        cy, sy, cp, sp = np.cos(yaw), np.sin(yaw), np.cos(pitch), np.sin(pitch)
        self.rotation = np.array([[1, 0, 0], [0, cp, -sp], [0, sp, cp]]) @ np.array(
            [[cy, 0, sy], [0, 1, 0], [-sy, 0, cy]])
        self.pixels = pixels
        self.origin = np.asarray(origin, float)

    def project(self, points):
        """Pixels (N x 2) of points in space (N x 3)."""
        seen = np.atleast_2d(points) @ self.rotation.T
        return self.origin + seen[:, :2] * (self.pixels, -self.pixels)

    def nearness(self, point):
        return float(self.rotation[2] @ point)

    def ball(self, centre, radius):
        """The outline of a sphere."""
        return self.project(centre) + np.array(CIRCLE) * (radius * self.pixels)


def limb_direction(swing, spread, side):
    """A limb that hangs down, swung forward and spread outwards, in radians."""
    return np.array([side * np.sin(spread), -np.cos(swing) * np.cos(spread), np.sin(swing) * np.cos(spread)])


class Pose:
    """Angles in radians, for (right, left) where there are two."""

    def __init__(self, rng, name):
        pair = rng.uniform
        self.lean = rng.uniform(-0.06, 0.12)
        self.roll = rng.uniform(-0.06, 0.06)
        self.thigh = pair(-0.08, 0.08, 2)
        self.knee = np.abs(pair(-0.1, 0.1, 2))  # how far the shin swings back from the thigh's direction
        self.leg_spread = pair(0.0, 0.14, 2)
        self.arm = pair(-0.25, 0.35, 2)
        self.elbow = pair(0.05, 0.9, 2) * (rng.random(2) < 0.7) + (rng.random(2) < 0.15) * 1.2
        self.arm_spread = pair(0.06, 0.35, 2)
        getattr(self, "_" + name, lambda _: None)(rng)

    def _walk(self, rng):
        stride = rng.uniform(0.2, 0.55) * rng.choice([-1, 1])
        self.thigh = np.array([stride, -stride * rng.uniform(0.6, 1)])
        self.knee = np.where(self.thigh < 0, rng.uniform(0.2, 0.9), rng.uniform(0, 0.2))
        self.arm = np.array([-stride, stride]) * rng.uniform(0.3, 1.2)

    def _sit(self, rng):
        self.thigh = rng.uniform(1.25, 1.65, 2)
        self.knee = self.thigh + rng.uniform(-0.35, 0.3, 2)
        self.leg_spread = rng.uniform(0, 0.3, 2)
        self.lean = rng.uniform(-0.2, 0.35)
        self.arm = rng.uniform(0.2, 0.8, 2)
        self.elbow = rng.uniform(0.5, 1.3, 2)

    def _bend(self, rng):
        self.lean = rng.uniform(0.6, 1.4)
        self.thigh = rng.uniform(0, 0.6) + rng.uniform(-0.15, 0.15, 2)
        self.knee = self.thigh + rng.uniform(0, 0.4, 2)
        self.arm = rng.uniform(0.2, 0.9, 2)
        self.elbow = rng.uniform(0, 0.6, 2)

    def _arms_up(self, rng):
        raised = rng.random(2) < 0.75
        raised[rng.integers(2)] = True
        self.arm_spread = np.where(raised, rng.uniform(1.3, 2.9, 2), self.arm_spread)
        self.elbow = np.where(raised, rng.uniform(0, 0.5, 2), self.elbow)
        self.arm = np.where(raised, 0, self.arm)

    def _carry(self, rng):
        self.arm = rng.uniform(0, 0.8, 2)
        self.elbow = rng.uniform(1.1, 1.9, 2)

    def _crouch(self, rng):
        self.thigh = rng.uniform(1.5, 2.1) + rng.uniform(-0.1, 0.1, 2)
        self.knee = self.thigh + rng.uniform(0.4, 0.9)
        self.lean = rng.uniform(0.2, 0.7)
        self.arm = rng.uniform(0.3, 1.1, 2)


class Body:
    """Joints in space, y measured from the hips; lengths relative to the height."""

    def __init__(self, rng, pose):
        child = rng.random() < 0.15
        self.build = rng.uniform(0.82, 1.35)  # thin to stout
        self.head_half = np.array([0.046, 0.064, 0.055]) * (rng.uniform(1.3, 1.6) if child else
                                                            rng.uniform(0.95, 1.15))
        leg, arm = rng.uniform(0.94, 1.05) * (0.92 if child else 1), rng.uniform(0.95, 1.05)
        shoulder, hip = rng.uniform(0.085, 0.115), rng.uniform(0.045, 0.06) * self.build ** 0.5
        spine = np.array([np.sin(pose.roll), np.cos(pose.lean), np.sin(pose.lean)])
        self.spine = spine / np.linalg.norm(spine)
        self.forward = np.cross([1, 0, 0], self.spine)
        self.hip = np.zeros(3)
        self.chest = self.spine * 0.26
        neck_lean = pose.lean * 0.4
        self.neck = self.spine * 0.285
        self.head = self.neck + np.array([0, np.cos(neck_lean), np.sin(neck_lean)]) * (0.022 + self.head_half[1])
        sides = []
        for i, side in enumerate((-1, 1)):
            at = self.chest + np.array([side * shoulder, 0, 0])
            elbow = at + limb_direction(pose.arm[i], pose.arm_spread[i], side) * 0.155 * arm
            wrist = elbow + limb_direction(pose.arm[i] + pose.elbow[i], pose.arm_spread[i] * rng.uniform(0.2, 1.1),
                                           side) * 0.15 * arm
            hip_at = np.array([side * hip, -0.01, 0])
            knee = hip_at + limb_direction(pose.thigh[i], pose.leg_spread[i], side) * 0.245 * leg
            ankle = knee + limb_direction(pose.thigh[i] - pose.knee[i], pose.leg_spread[i] * 0.5, side) * 0.235 * leg
            sides.append((at, elbow, wrist, hip_at, knee, ankle))
        self.shoulders, self.elbows, self.wrists, self.hips, self.knees, self.ankles = zip(*sides)
