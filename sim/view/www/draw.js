// Draws one status document on the canvas: the radar at the bottom centre facing up,
// range rings, exclusion areas, the camera's field of view as a wedge, the objects and
// the followed group. Colours come from the page's CSS, so both colour schemes apply.

const fitSteps = [25, 50, 100, 150, 200, 300];

function cssColour(name) {
  return getComputedStyle(document.documentElement).getPropertyValue(name).trim();
}

function classColour(name) {
  switch (name) {
    case 'Human': return cssColour('--human');
    case 'Vehicle': return cssColour('--vehicle');
    case 'SmallObject': return cssColour('--small');
    default: return cssColour('--other');
  }
}

// The range shown: the chosen one, or the smallest step that holds every object.
export function shownRange(status, choice) {
  if (choice !== 'auto') return Number(choice);
  const farthest = Math.max(0, ...status.objects.map((o) => o.range));
  return fitSteps.find((step) => step >= farthest * 1.1) ?? fitSteps[fitSteps.length - 1];
}

// Canvas geometry: metres on the ground (x right, y ahead) to pixels.
function frame(canvas, range) {
  const width = canvas.width;
  const height = canvas.height;
  const margin = 28 * (window.devicePixelRatio || 1);
  const scale = Math.min((width - 2 * margin) / 2, height - 2 * margin) / range;
  const originX = width / 2;
  const originY = height - margin;
  return {
    scale,
    originX,
    originY,
    at: (x, y) => [originX + x * scale, originY - y * scale],
  };
}

// Canvas angle (radians, clockwise from +x) of an azimuth (degrees, clockwise from ahead).
function canvasAngle(azimuth) {
  return ((azimuth - 90) * Math.PI) / 180;
}

function drawRings(ctx, f, range, dpr) {
  ctx.strokeStyle = cssColour('--ring');
  ctx.fillStyle = cssColour('--ring-label');
  ctx.lineWidth = dpr;
  ctx.font = `${12 * dpr}px system-ui, sans-serif`;
  ctx.textAlign = 'left';
  const labelEvery = 10 * f.scale >= 28 * dpr ? 10 : 50;
  for (let r = 10; r <= range; r += 10) {
    ctx.beginPath();
    ctx.arc(f.originX, f.originY, r * f.scale, Math.PI, 2 * Math.PI);
    ctx.stroke();
    if (r % labelEvery === 0) ctx.fillText(`${r} m`, f.originX + 3 * dpr, f.originY - r * f.scale - 3 * dpr);
  }
  for (let a = -90; a <= 90; a += 30) {
    const [x, y] = f.at(range * Math.sin((a * Math.PI) / 180), range * Math.cos((a * Math.PI) / 180));
    ctx.beginPath();
    ctx.moveTo(f.originX, f.originY);
    ctx.lineTo(x, y);
    ctx.stroke();
  }
}

function drawZones(ctx, f, zones, dpr) {
  for (const zone of zones) {
    if (zone.polygon.length < 3) continue;
    const excluding = zone.enabled && zone.kind === 'excludeArea';
    ctx.beginPath();
    zone.polygon.forEach(([x, y], i) => {
      const [px, py] = f.at(x, y);
      if (i === 0) ctx.moveTo(px, py);
      else ctx.lineTo(px, py);
    });
    ctx.closePath();
    if (excluding) {
      ctx.fillStyle = cssColour('--zone');
      ctx.fill();
    }
    ctx.setLineDash(excluding ? [] : [4 * dpr, 4 * dpr]);
    ctx.strokeStyle = cssColour('--zone-edge');
    ctx.lineWidth = 1.5 * dpr;
    ctx.stroke();
    ctx.setLineDash([]);
  }
}

function drawWedge(ctx, f, camera, range, dpr) {
  if (!camera.reachable) return;
  const direction = camera.pan - camera.pan_offset;
  const half = camera.field_angle / 2;
  const radius = range * f.scale * 1.05;
  ctx.beginPath();
  ctx.moveTo(f.originX, f.originY);
  ctx.arc(f.originX, f.originY, radius, canvasAngle(direction - half), canvasAngle(direction + half));
  ctx.closePath();
  ctx.fillStyle = cssColour('--wedge');
  ctx.fill();
  ctx.strokeStyle = cssColour('--wedge-edge');
  ctx.lineWidth = 1.5 * dpr;
  ctx.stroke();
  // The pan direction itself.
  ctx.beginPath();
  ctx.moveTo(f.originX, f.originY);
  ctx.lineTo(f.originX + Math.cos(canvasAngle(direction)) * radius, f.originY + Math.sin(canvasAngle(direction)) * radius);
  ctx.setLineDash([6 * dpr, 4 * dpr]);
  ctx.stroke();
  ctx.setLineDash([]);
}

// A dashed outline around the followed objects inside the field of view.
function drawFollowed(ctx, f, objects, dpr) {
  const followed = objects.filter((o) => o.followed && o.in_view).map((o) => f.at(o.x, o.y));
  if (followed.length === 0) return;
  const cx = followed.reduce((s, p) => s + p[0], 0) / followed.length;
  const cy = followed.reduce((s, p) => s + p[1], 0) / followed.length;
  const radius = Math.max(...followed.map(([x, y]) => Math.hypot(x - cx, y - cy))) + 12 * dpr;
  ctx.beginPath();
  ctx.arc(cx, cy, radius, 0, 2 * Math.PI);
  ctx.setLineDash([5 * dpr, 4 * dpr]);
  ctx.strokeStyle = cssColour('--followed');
  ctx.lineWidth = 1.5 * dpr;
  ctx.stroke();
  ctx.setLineDash([]);
}

function drawObjects(ctx, f, objects, range, dpr) {
  ctx.font = `${12 * dpr}px system-ui, sans-serif`;
  ctx.textAlign = 'left';
  for (const o of objects) {
    if (o.range > range * 1.05) continue;
    const [x, y] = f.at(o.x, o.y);
    const colour = classColour(o.class);
    ctx.beginPath();
    ctx.arc(x, y, 5 * dpr, 0, 2 * Math.PI);
    ctx.fillStyle = colour;
    ctx.fill();
    if (!o.followed) {
      ctx.strokeStyle = cssColour('--panel');
      ctx.lineWidth = 2 * dpr;
      ctx.stroke();
    }
    ctx.fillStyle = colour;
    ctx.fillText(String(o.id), x + 7 * dpr, y - 6 * dpr);
  }
}

function drawRadar(ctx, f, dpr) {
  ctx.beginPath();
  ctx.moveTo(f.originX, f.originY - 9 * dpr);
  ctx.lineTo(f.originX - 7 * dpr, f.originY + 5 * dpr);
  ctx.lineTo(f.originX + 7 * dpr, f.originY + 5 * dpr);
  ctx.closePath();
  ctx.fillStyle = cssColour('--text');
  ctx.fill();
}

// Matches the canvas's pixels to its size on the screen.
export function fitCanvas(canvas) {
  const dpr = window.devicePixelRatio || 1;
  const width = Math.round(canvas.clientWidth * dpr);
  const height = Math.round(canvas.clientHeight * dpr);
  if (canvas.width !== width || canvas.height !== height) {
    canvas.width = width;
    canvas.height = height;
  }
}

export function drawField(canvas, status, range) {
  const dpr = window.devicePixelRatio || 1;
  const ctx = canvas.getContext('2d');
  ctx.clearRect(0, 0, canvas.width, canvas.height);
  const f = frame(canvas, range);
  drawZones(ctx, f, status.zones, dpr);
  drawWedge(ctx, f, status.camera, range, dpr);
  drawRings(ctx, f, range, dpr);
  drawFollowed(ctx, f, status.objects, dpr);
  drawObjects(ctx, f, status.objects, range, dpr);
  drawRadar(ctx, f, dpr);
}
