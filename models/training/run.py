# SPDX-License-Identifier: Apache-2.0
"""The program that a network's train.py is: draws or reads examples, trains, writes and checks the network."""
import argparse
import dataclasses
import functools
import math
import os
import sys
import time
from pathlib import Path
from typing import Any, Callable, Dict, Optional, Sequence, Tuple

import torch

from models.labels import table
from models.training import onnx_files
from models.training.examples import Batches


MATERIAL = {"photos": "photographs with boxes and outlines, as models/sources/photos/photographs.py reads them",
            "empty": "photographs without anything to be found",
            "rendered": "persons, as models/sources/bodies/cut_outs.py renders them"}


@dataclasses.dataclass
class Phase:
    loss: Callable[..., Any]  # loss(module, *batch); the batch is what `vary` gives, side by side
    steps: int
    rate: float  # of learning, at its height
    keeps_normalisations: bool = False


@dataclasses.dataclass
class Recipe:
    """What the networks' training differs in."""
    folder: str  # in models/
    network: Callable[[], torch.nn.Module]
    outputs: Sequence[str]
    examples: Callable[[Any], Any]  # of the options: a source of examples
    vary: Callable[..., Sequence[Any]]  # vary(rng, *example, width, height): arrays, the input first
    phases: Sequence[Phase]
    seed: int
    batch: int
    shapes: Dict[str, Tuple[int, int, int]]  # of the input, for each file: channels, height, width
    stock: int = 2000  # examples that are kept and used again
    fresh: float = 0.1  # the share of new ones
    is_halved: bool = False  # in bfloat16 where the processor multiplies it
    takes: Sequence[str] = ()  # which of MATERIAL it learns from


def parse(recipe: Recipe, arguments: Optional[Sequence[str]] = None) -> argparse.Namespace:
    parser = argparse.ArgumentParser(description=f"Trains the sample network of models/{recipe.folder}.")
    parser.add_argument("--out", type=Path, metavar="DIR", default=Path(__file__).parents[1] / recipe.folder,
                        help="where the network goes (default: where it is now)")
    parser.add_argument("--data", action="append", default=[], metavar="DIR",
                        help="your own pictures or sounds, labelled as kelnn eval reads them; may be given several times")
    parser.add_argument("--share", type=float, default=0.5, help="of the examples that come from --data (default: 0.5)")
    for name, what in MATERIAL.items():
        if name in recipe.takes:
            parser.add_argument(f"--{name}", metavar="DIR", help=f"{what}: examples of it too")
    parser.add_argument("--start", metavar="FILE.onnx", help="goes on from this network, at a quarter of the rate")
    parser.add_argument("--keep", type=float, default=0.0, metavar="SHARE",
                        help="of the weights of --start in the result, which forgets less of what that knew (default: 0)")
    parser.add_argument("--keep-of", metavar="FILE.onnx", help="keeps that share of this network instead")
    parser.add_argument("--quick", action="store_true", help="40 steps, to see that everything works; the result is no good")
    parser.add_argument("--steps", type=int, default=recipe.phases[0].steps)
    parser.add_argument("--batch", type=int, default=recipe.batch)
    parser.add_argument("--rate", type=float, metavar="X", help="of learning, at its height (default: the network's own)")
    parser.add_argument("--seed", type=int, default=recipe.seed)
    parser.add_argument("--device", default="cpu", help="cpu or cuda")
    parser.add_argument("--threads", type=int, default=os.cpu_count())
    parser.add_argument("--workers", type=int, default=2, help="processes that make examples; another number, other examples")
    options = parser.parse_args(arguments)
    options.steps = 40 if options.quick else options.steps
    return options


@functools.lru_cache()
def multiplies_bfloat16() -> bool:
    return bool({"amx_bf16", "avx512_bf16"} & set(Path("/proc/cpuinfo").read_text().split()))


def fit(module: Any, batches: Any, phase: Phase, steps: int, options: argparse.Namespace, is_halved: bool) -> Any:
    """The module with the mean of the weights of the last steps, which is less noisy than any of them."""
    rate = options.rate or (phase.rate / 4 if options.start else phase.rate)
    learned = [weight for weight in module.parameters() if weight.requires_grad]
    optimizer = torch.optim.AdamW(learned, lr=rate, weight_decay=1e-3)
    schedule = torch.optim.lr_scheduler.OneCycleLR(optimizer, rate, total_steps=steps + 1, pct_start=0.1)
    average = torch.optim.swa_utils.AveragedModel(
        module, avg_fn=lambda mean, new, n: mean + (new - mean) * max(0.005, 10 / (int(n) + 10)), use_buffers=True)
    module.train(not phase.keeps_normalisations)
    recent, start = math.nan, time.monotonic()
    told = start
    for step, batch in zip(range(1, steps + 1), batches):
        batch = [part.to(options.device) if torch.is_tensor(part) else [one.to(options.device) for one in part] for part in batch]
        with torch.autocast(torch.device(options.device).type, torch.bfloat16, enabled=is_halved):
            loss = phase.loss(module, *batch)
        optimizer.zero_grad()
        loss.backward()
        torch.nn.utils.clip_grad_norm_(learned, 20)
        optimizer.step()
        schedule.step()
        average.update_parameters(module)
        recent = loss.item() if step == 1 else 0.98 * recent + 0.02 * loss.item()
        if time.monotonic() - told > 10 or step == steps:
            told = time.monotonic()
            left = (told - start) / step * (steps - step)
            print(f"{step:6}/{steps}  loss {recent:.4f}  {left / 60:.1f} minutes left", flush=True)
    return average.module


def run(recipe: Recipe, arguments: Optional[Sequence[str]] = None) -> None:
    options = parse(recipe, arguments)
    torch.manual_seed(options.seed)
    torch.set_num_threads(options.threads)
    module = recipe.network()
    with torch.no_grad():  # bytes less 128 come in
        next(layer for layer in module.modules() if isinstance(layer, torch.nn.Conv2d)).weight /= 64
    try:
        if options.start:
            onnx_files.start_from(module, options.start, next(iter(recipe.shapes.values())))
        batches = iter(torch.utils.data.DataLoader(Batches(recipe, options), batch_size=None, num_workers=options.workers))
        if options.start:
            onnx_files.renormalise(module, functools.partial(recipe.phases[0].loss, module, *next(batches)))
        is_halved = recipe.is_halved and (options.device != "cpu" or multiplies_bfloat16())
        module = module.to(options.device, memory_format=torch.channels_last if is_halved else torch.contiguous_format)
        for phase in recipe.phases:
            steps = options.steps and max(1, phase.steps * options.steps // recipe.phases[0].steps)
            module = fit(module, batches, phase, steps, options, is_halved)
    except (table.Invalid, OSError) as error:
        sys.exit(str(error))
    options.out.mkdir(parents=True, exist_ok=True)
    export(recipe, options, module.to("cpu"))
    if options.keep and (options.keep_of or options.start):
        ends = [recipe.network(), recipe.network()]  # with all normalisations folded away
        for end, path in zip(ends, (options.out / f"{next(iter(recipe.shapes))}.onnx", options.keep_of or options.start)):
            onnx_files.start_from(end, path, next(iter(recipe.shapes.values())))
        with torch.no_grad():
            for weight, kept in zip(*(end.parameters() for end in ends)):
                weight.lerp_(kept, options.keep)
        export(recipe, options, ends[0])


def export(recipe: Recipe, options: argparse.Namespace, module: Any) -> None:
    for name, shape in recipe.shapes.items():
        onnx_files.export(module, str(options.out / f"{name}.onnx"), shape, recipe.outputs)
