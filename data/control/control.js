// The control page: built from the published inputs the server lists, kept current by its event
// stream. Every change goes through the control API; nothing here keeps state of its own beyond what
// the last event said.
"use strict";

const inputsForm = document.getElementById("inputs");
const message = document.getElementById("message");
const connection = document.getElementById("connection");
const preview = document.getElementById("preview");

// Set by each control built: how to show an input's value when the playout reports it.
let updaters = new Map();
let inputsSignature = "";
// Resolved by the next state events, for triggers waiting to see their press applied.
let stateWaiters = [];

function showMessage(text) {
  message.textContent = text;
}

async function send(method, path, body) {
  const response = await fetch(path, {
    method,
    headers: { "Content-Type": "application/json" },
    body: body === undefined ? undefined : JSON.stringify(body),
  });
  const answer = await response.json().catch(() => ({}));
  if (!response.ok) {
    throw new Error(answer.error || `${response.status} ${response.statusText}`);
  }
  showMessage("");
  return answer;
}

function setInput(name, value) {
  return send("PUT", "/api/inputs/" + encodeURIComponent(name), value).catch((error) => {
    showMessage(`${name}: ${error.message}`);
    throw error;
  });
}

// Resolves with the first state for which the test holds, or with nothing after the time given.
function stateWhere(test, milliseconds) {
  return new Promise((resolve) => {
    const waiter = { test, resolve };
    stateWaiters.push(waiter);
    setTimeout(() => {
      stateWaiters = stateWaiters.filter((other) => other !== waiter);
      resolve(null);
    }, milliseconds);
  });
}

// A trigger is true for at least one frame, then false again: false is sent only once a frame with
// true has been shown, or both would land in the same frame and the press would be lost.
async function pulse(name) {
  await setInput(name, true);
  const valueOf = (state) => state.inputs.find((input) => input.name === name)?.value;
  await stateWhere((state) => valueOf(state) === true, 2000);
  await setInput(name, false);
}

function hexColor(value) {
  const [red, green, blue] = Array.isArray(value) ? value : [0, 0, 0];
  return (
    "#" +
    [red, green, blue]
      .map((component) => Math.round(Math.min(Math.max(Number(component) || 0, 0), 1) * 255).toString(16).padStart(2, "0"))
      .join("")
  );
}

function colorFromHex(hex, alpha) {
  return [1, 3, 5].map((start) => parseInt(hex.substr(start, 2), 16) / 255).concat([alpha]);
}

function element(tag, properties = {}, children = []) {
  const made = Object.assign(document.createElement(tag), properties);
  made.append(...children);
  return made;
}

// Sends at most one value per interval while a slider is dragged, and always the last one.
function throttled(sendValue, interval = 40) {
  let waiting = null;
  let timer = null;
  return (value) => {
    waiting = value;
    if (timer === null) {
      const flush = () => {
        if (waiting === null) {
          timer = null;
          return;
        }
        sendValue(waiting).catch(() => {});
        waiting = null;
        timer = setTimeout(flush, interval);
      };
      flush();
    }
  };
}

function numberControl(input, step) {
  const hasRange = input.minimum !== undefined && input.maximum !== undefined;
  const field = element("input", {
    type: hasRange ? "range" : "number",
    step,
    min: input.minimum ?? (step === 1 ? 0 : ""),
    max: input.maximum ?? "",
  });
  const shown = element("output");
  const sendValue = throttled((value) => setInput(input.name, value));
  field.addEventListener(hasRange ? "input" : "change", () => {
    shown.value = field.value;
    sendValue(Number(field.value));
  });
  const update = (value) => {
    field.value = value;
    shown.value = value;
  };
  return { parts: hasRange ? [field, shown] : [field], field, update };
}

function controlFor(input) {
  switch (input.type) {
    case "String": {
      const field = element("input", { type: "text" });
      field.addEventListener("change", () => setInput(input.name, field.value).catch(() => {}));
      return { parts: [field], field, update: (value) => (field.value = value ?? "") };
    }
    case "Number":
      return numberControl(input, "any");
    case "Index": {
      if (!input.menuItems) {
        return numberControl(input, 1);
      }
      const field = element("select", {}, input.menuItems.map((item, index) => element("option", { value: index, textContent: item })));
      field.addEventListener("change", () => setInput(input.name, Number(field.value)).catch(() => {}));
      return { parts: [field], field, update: (value) => (field.value = value) };
    }
    case "Boolean": {
      const field = element("input", { type: "checkbox" });
      field.addEventListener("change", () => setInput(input.name, field.checked).catch(() => {}));
      const trigger = element("button", { type: "button", className: "trigger", textContent: input.name });
      trigger.dataset.input = input.name;
      trigger.addEventListener("click", () => pulse(input.name).catch(() => {}));
      return { parts: [field, trigger], field, update: (value) => (field.checked = value === true) };
    }
    case "Color": {
      const field = element("input", { type: "color" });
      let alpha = 1;
      field.addEventListener("input", () => setInput(input.name, colorFromHex(field.value, alpha)).catch(() => {}));
      const update = (value) => {
        field.value = hexColor(value);
        alpha = Array.isArray(value) && value.length > 3 ? value[3] : 1;
      };
      return { parts: [field], field, update };
    }
    default: {
      // Images and structures are shown, not edited.
      const field = element("code");
      return { parts: [field], field, update: (value) => (field.textContent = JSON.stringify(value)) };
    }
  }
}

function buildInputs(inputs) {
  inputsForm.replaceChildren();
  updaters = new Map();
  for (const input of inputs) {
    const control = controlFor(input);
    const id = "input-" + input.name;
    control.field.id = id;
    control.field.dataset.input = input.name;
    inputsForm.append(
      element("label", { htmlFor: id, textContent: input.name, title: input.type }),
      element("div", { className: "control" }, control.parts),
    );
    updaters.set(input.name, { field: control.field, update: control.update });
  }
}

// Names and values as a definition list; the names stay, only the values change from frame to frame.
function figures(list, entries) {
  const names = [...list.querySelectorAll("dt")].map((term) => term.textContent);
  if (names.length !== entries.length || entries.some(([name], index) => names[index] !== String(name))) {
    list.replaceChildren(...entries.flatMap(([name]) => [element("dt", { textContent: name }), element("dd")]));
  }
  list.querySelectorAll("dd").forEach((detail, index) => (detail.textContent = entries[index][1]));
}

function render(state) {
  document.getElementById("composition").textContent = state.composition || "qva control";
  const signature = JSON.stringify(state.inputs.map(({ value, ...shape }) => shape));
  if (signature !== inputsSignature) {
    inputsSignature = signature;
    buildInputs(state.inputs);
  }
  for (const input of state.inputs) {
    const updater = updaters.get(input.name);
    // What the operator is editing is left alone.
    if (updater && updater.field !== document.activeElement) {
      updater.update(input.value);
    }
  }
  figures(document.getElementById("clock"), [
    ["Frame", state.frame],
    ["Time", `${Number(state.time).toFixed(2)} s`],
    ["Frame rate", `${state.frameRate} fps`],
  ]);
  const pacing = state.pacing;
  figures(document.getElementById("pacing"), [
    ["Shown", pacing.framesShown],
    ["Late", pacing.framesLate],
    ["Dropped", pacing.framesDropped],
    ["Repeated", pacing.framesRepeated],
    ["Render", `${Number(pacing.renderMilliseconds).toFixed(1)} ms`],
    ["Output", `${Number(pacing.outputMilliseconds).toFixed(1)} ms`],
  ]);
  figures(document.getElementById("outputs"), state.outputs.map((output) => [output.name, JSON.stringify(output.value)]));
  const satisfied = stateWaiters.filter((waiter) => waiter.test(state));
  stateWaiters = stateWaiters.filter((waiter) => !satisfied.includes(waiter));
  satisfied.forEach((waiter) => waiter.resolve(state));
}

function listen() {
  const events = new EventSource("/api/events");
  events.addEventListener("state", (event) => {
    connection.textContent = "live";
    connection.classList.add("live");
    render(JSON.parse(event.data));
  });
  events.addEventListener("error", () => {
    connection.textContent = "reconnecting…";
    connection.classList.remove("live");
  });
}

// A few thumbnails a second: the next is asked for only once the last has come.
function refreshPreview() {
  const next = () => setTimeout(refreshPreview, 250);
  preview.onload = next;
  preview.onerror = next;
  preview.src = "/api/snapshot.png?" + Date.now();
}

document.getElementById("load").addEventListener("submit", (event) => {
  event.preventDefault();
  send("POST", "/api/load", { path: document.getElementById("loadPath").value }).catch((error) => showMessage(`load: ${error.message}`));
});

document.getElementById("stop").addEventListener("click", () => {
  if (confirm("Stop the playout? The output ends.")) {
    send("POST", "/api/stop").catch((error) => showMessage(`stop: ${error.message}`));
  }
});

inputsForm.addEventListener("submit", (event) => event.preventDefault());

fetch("/api/state")
  .then((response) => response.json())
  .then(render)
  .catch((error) => showMessage(`cannot read the state: ${error.message}`))
  .finally(() => {
    listen();
    refreshPreview();
  });
