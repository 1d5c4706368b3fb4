// The live view: listens to the unit's updates (server-sent events, one status document
// each) and draws the latest one. The page never polls; the browser reconnects by itself.
import { drawField, fitCanvas, shownRange } from './draw.js';
import { showPanel } from './panel.js';

const canvas = document.getElementById('field');
const rangeChoice = document.getElementById('range');
const pauseButton = document.getElementById('pause');
const link = document.getElementById('link');

let latest = null;
let paused = false;
let frameRequested = false;

function render() {
  frameRequested = false;
  if (!latest) return;
  fitCanvas(canvas);
  const range = shownRange(latest, rangeChoice.value);
  drawField(canvas, latest, range);
  showPanel(latest);
}

function requestRender() {
  if (!frameRequested) {
    frameRequested = true;
    requestAnimationFrame(render);
  }
}

function setLink(state, text) {
  link.dataset.value = state;
  link.textContent = text;
}

function listen() {
  const updates = new EventSource('updates');
  updates.onopen = () => setLink('live', 'Live');
  updates.onerror = () => setLink('lost', 'Connection to the unit lost; retrying…');
  updates.onmessage = (message) => {
    if (paused) return;
    latest = JSON.parse(message.data);
    requestRender();
  };
}

function setPaused(value) {
  paused = value;
  pauseButton.setAttribute('aria-pressed', String(paused));
  pauseButton.textContent = paused ? 'Resume' : 'Pause';
}

function stepRange(direction) {
  const last = rangeChoice.options.length - 1;
  rangeChoice.selectedIndex = Math.min(last, Math.max(0, rangeChoice.selectedIndex + direction));
  requestRender();
}

pauseButton.addEventListener('click', () => setPaused(!paused));
rangeChoice.addEventListener('change', requestRender);
new ResizeObserver(requestRender).observe(canvas);
matchMedia('(prefers-color-scheme: dark)').addEventListener('change', requestRender);
document.addEventListener('keydown', (event) => {
  if (event.target instanceof HTMLSelectElement || event.altKey || event.ctrlKey || event.metaKey) return;
  if (event.key === '+' || event.key === '=') stepRange(1);
  else if (event.key === '-') stepRange(-1);
  else if (event.key === 'p') setPaused(!paused);
  else return;
  event.preventDefault();
});

listen();
