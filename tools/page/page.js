// SPDX-License-Identifier: Apache-2.0
// Asks what is new, again and again, and shows it. A question waits until something is.
"use strict";

const $ = (id) => document.getElementById(id);
const MAX_EVENTS = 50;

const element = (name, text) => Object.assign(document.createElement(name), {textContent: text});
const pause = (ms) => new Promise((resolve) => setTimeout(resolve, ms));
const happens = (target, name) => new Promise((resolve) => target.addEventListener(name, resolve, {once: true}));

function clock(seconds) {
  const [minutes, rest] = [Math.floor(seconds / 60), seconds % 60];
  const small = String(Math.floor(rest)).padStart(2, "0");
  return minutes < 60 ? `${minutes}:${small}` : `${Math.floor(minutes / 60)}:${String(minutes % 60).padStart(2, "0")}:${small}`;
}

function showLink(text, kind) {
  if ($("link").textContent !== text) $("link").textContent = text;
  $("link").className = kind;
}

// ----- The picture, and what is said of it

const called = ({name, track, who}) => [who && who !== "unknown" ? who : name, track > 0 ? track : ""].join(" ").trim();

// In the old one's place when it is there and decoded, so that nothing flickers.
async function showPicture(number, {boxes = []}) {
  const picture = new Image();
  picture.src = `picture.jpg?of=${number}`;
  picture.id = "picture";
  picture.alt = `The newest frame; found: ${boxes.map(called).join(", ") || "nothing"}`;
  await picture.decode();
  $("picture").replaceWith(picture);
}

function showState({input, frame, time, motion, sound, boxes = []}) {
  $("place").textContent = `${input}, frame ${frame} at ${clock(time)}`;
  if (motion !== undefined) {
    $("motion").textContent = motion ? "something moves" : "still";
    $("motion").className = motion ? "yes" : "";
  }
  $("sound").hidden = sound?.level === undefined;
  if (sound?.level !== undefined) {
    $("level").value = sound.level;
    $("decibels").textContent = `${Math.round(sound.level)} dB`;
  }
  $("crying").hidden = sound?.probability === undefined;
  if (sound?.probability !== undefined) {
    $("probability").textContent = `${Math.round(100 * sound.probability)} %`;
    $("probability").className = sound.probability > 0.5 ? "yes" : "";
  }
  $("boxes").replaceChildren(...boxes.map((box) => element("li", `${called(box)} · ${box.score.toFixed(2)}`)));
}

// ----- Events

function words(event) {
  switch (event.event) {
    case "entered": return `${called(event)} came`;
    case "left": return `${called(event)} left after ${event.dwell.toFixed(1)} s`;
    case "recognised": return `${event.who} was recognised`;
    case "cry": return "a baby cries";
    default: return [event.event, called(event)].join(" ").trim();
  }
}

function play(clip) {
  $("trouble").textContent = "";
  $("player").hidden = false;
  $("video").src = `clips/${encodeURIComponent(clip)}`;
  $("video").play().catch(() => {});  // told as an error, or by the player
}
$("video").addEventListener("error", () => { $("trouble").textContent = "The clip is not there any more."; });

// A clip can be played when an event says that it is complete.
function addEvent(event) {
  const lines = $("events");
  if (event.event === "clip") {
    for (const button of lines.querySelectorAll("button")) button.hidden &&= button.value !== event.clip;
    return;
  }
  const line = element("li", ""), when = event.clock ? new Date(event.clock) : null;
  const time = element("time", when ? when.toLocaleTimeString() : clock(event.time));
  if (when) time.dateTime = event.clock;
  line.append(time, element("span", words(event)));
  if (event.clip) {
    const button = Object.assign(element("button", "Play"), {value: event.clip, hidden: true});
    button.setAttribute("aria-label", `Play the clip: ${words(event)}`);
    button.addEventListener("click", () => play(event.clip));
    line.append(button);
  }
  lines.prepend(line);
  while (lines.children.length > MAX_EVENTS) lines.lastChild.remove();
  $("nothing").hidden = true;
}

// ----- Again and again

async function follow() {
  let run = 0, number = 0, told = 0, waited = 0;
  for (;;) {
    if (document.hidden) await happens(document, "visibilitychange");
    try {
      const answer = await fetch(`state?after=${number}&told=${told}`, {signal: AbortSignal.timeout(10000)});
      if (answer.status === 401 || answer.status === 403) return location.reload();
      if (!answer.ok) throw new Error(answer.status);
      const news = await answer.json();
      if (news.run !== run) {  // another one from now on: nothing is old
        const isOther = run !== 0;
        [run, number, told] = [news.run, 0, 0];
        $("events").replaceChildren();
        if (isOther) continue;
      }
      for (const {number: one, event} of news.events) {
        told = one;
        addEvent(event);
      }
      $("events").ariaLive = "polite";  // only what comes from now on is read out
      waited = news.number === number ? waited + 1 : 0;
      if (news.number !== number) {
        number = news.number;
        showState(news.state);
        await showPicture(number, news.state);
      }
      if (number === 0) showLink("waiting for the first frame", "");
      else if (waited > 2) showLink("no new frame", "");
      else showLink("live", "live");
    } catch {
      showLink("no answer, asking again", "lost");
      await pause(1000);
    }
  }
}

$("told").hidden = false;
follow();
