// Fills the panel beside the field from one status document. Each figure's text is for
// people; its data-value holds the raw number for scripts and tests.

function show(id, text, value) {
  const element = document.getElementById(id);
  element.textContent = text;
  element.dataset.value = value === null || value === undefined ? '' : String(value);
}

function percent(share) {
  return share === null ? '–' : `${(share * 100).toFixed(1)} %`;
}

function degrees(value) {
  return `${value.toFixed(1)}°`;
}

function showEvents(events) {
  const list = document.getElementById('events');
  const items = events
    .slice()
    .reverse()
    .map((e) => {
      const item = document.createElement('li');
      if (e.failed) item.className = 'failed';
      item.textContent = e.state ? `${e.method} ${e.state}` : e.method;
      const age = document.createElement('span');
      age.className = 'age';
      age.textContent = ` (${e.age_s.toFixed(0)} s ago)`;
      item.append(age);
      return item;
    });
  list.replaceChildren(...items);
}

export function showPanel(status) {
  const { camera, figures, service } = status;
  show('state', service.state ?? 'no event yet', service.state ?? '');
  show('in-view-share', percent(figures.in_view_share), figures.in_view_share);
  document.getElementById('in-view-detail').textContent =
    figures.counted_s > 0
      ? ` over ${figures.counted_s.toFixed(0)} s; per object ${percent(figures.object_in_view_share)}`
      : ' (nothing followed yet)';
  show('moves-per-s', String(figures.moves_per_s), figures.moves_per_s);
  show('first-move', figures.first_move_s === null ? '–' : `${(figures.first_move_s * 1000).toFixed(0)} ms`,
    figures.first_move_s);
  if (camera.reachable) {
    show('camera-pan', degrees(camera.pan), camera.pan);
    show('camera-tilt', degrees(camera.tilt), camera.tilt);
    show('field-angle', degrees(camera.field_angle), camera.field_angle);
  } else {
    show('camera-pan', 'camera not reachable', null);
    show('camera-tilt', '–', null);
    show('field-angle', '–', null);
  }
  const followed = status.objects.filter((o) => o.followed).length;
  show('objects', `${status.objects.length} (${followed} followed)`, status.objects.length);
  document.getElementById('camera-traffic').textContent = `${camera.connections}, ${camera.requests}`;
  showEvents(service.events);
}
