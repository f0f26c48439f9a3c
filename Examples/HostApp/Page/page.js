'use strict';
// The page only shows: every figure and text was made by the program that wrote it.
(() => {
  const data = JSON.parse(document.getElementById('data').textContent);
  const root = document.documentElement;
  const profile = document.querySelector('.profile');
  const map = document.querySelector('.map');
  const here = map.querySelector('.here');
  const last = data.time.at.length - 1;
  let axis = 'time';
  let current = 0;

  const clamp = (value) => Math.max(0, Math.min(last, value));

  function show(index) {
    current = clamp(index);
    const said = [];
    for (const cell of document.querySelectorAll('.readout bdi')) {
      const column = data[cell.dataset.column];
      cell.textContent = column.texts[column.at[current]];
      const name = cell.parentElement.previousElementSibling.textContent;
      if (cell.textContent) said.push(`${name} ${cell.textContent}`);
    }
    profile.style.setProperty('--x', data.position[axis][current] / 1e4);
    profile.setAttribute('aria-valuenow', current);
    profile.setAttribute('aria-valuetext', said.join(', '));
    here.setAttribute('cx', data.place[2 * current] / 10);
    here.setAttribute('cy', data.place[2 * current + 1] / 10);
    here.style.visibility = 'visible';
  }

  /// The sample nearest to a position on the axis, by bisection.
  function nearest(position) {
    const positions = data.position[axis];
    let low = 0, high = last;
    while (low < high) {
      const middle = (low + high) >> 1;
      if (positions[middle] < position) low = middle + 1; else high = middle;
    }
    if (low > 0 && position - positions[low - 1] < positions[low] - position) --low;
    return low;
  }

  function follow(event) {
    const canvas = [...profile.querySelectorAll('.canvas')].find((each) => each.offsetParent);
    const box = canvas.getBoundingClientRect();
    show(nearest((event.clientX - box.left) / box.width * 1e4));
  }

  profile.addEventListener('pointermove', follow);
  profile.addEventListener('pointerdown', follow);

  profile.addEventListener('keydown', (event) => {
    const steps = {ArrowRight: 1, ArrowUp: 1, ArrowLeft: -1, ArrowDown: -1,
                   PageUp: 20, PageDown: -20, Home: -last, End: last};
    if (!(event.key in steps)) return;
    event.preventDefault();
    show(current + steps[event.key]);
  });

  const narrow = matchMedia('(max-width: 640px)');
  const whole = map.getAttribute('viewBox');
  const frame = () => map.setAttribute('viewBox', narrow.matches ? map.dataset.narrow : whole);
  narrow.addEventListener('change', frame);
  frame();

  map.addEventListener('pointermove', (event) => {
    const point = new DOMPoint(event.clientX, event.clientY)
        .matrixTransform(map.getScreenCTM().inverse());
    let best = current, least = Infinity;
    for (let i = 0; i <= last; ++i) {
      const away = Math.hypot(data.place[2 * i] / 10 - point.x, data.place[2 * i + 1] / 10 - point.y);
      if (away < least) { least = away; best = i; }
    }
    if (least < 40) show(best);
  });

  for (const button of document.querySelectorAll('[data-show-axis]')) {
    button.addEventListener('click', () => {
      axis = root.dataset.axis = button.dataset.showAxis;
      for (const each of document.querySelectorAll('[data-show-axis]')) {
        each.setAttribute('aria-pressed', String(each === button));
      }
      show(current);
    });
  }

  const table = document.querySelector('table');
  if (table) {
    const headings = [...table.querySelectorAll('thead th')];
    headings.forEach((heading, column) => heading.querySelector('button')
        .addEventListener('click', () => {
      const isDown = heading.getAttribute('aria-sort') === 'ascending';
      for (const each of headings) each.removeAttribute('aria-sort');
      heading.setAttribute('aria-sort', isDown ? 'descending' : 'ascending');
      const value = (row) => Number(row.cells[column].dataset.value);
      const rows = [...table.tBodies[0].rows];
      rows.sort((a, b) => (isDown ? -1 : 1) * (value(a) - value(b)));
      table.tBodies[0].append(...rows);
    }));

    const light = (segment) => {
      map.classList.toggle('lit', segment !== undefined);
      for (const each of map.querySelectorAll('[data-segment]')) {
        each.classList.toggle('lit', each.dataset.segment === segment);
      }
    };
    for (const row of table.tBodies[0].rows) {
      row.addEventListener('pointerenter', () => light(row.dataset.segment));
      row.addEventListener('pointerleave', () => light(undefined));
    }
  }

  const isDark = () => root.dataset.theme
      ? root.dataset.theme === 'dark'
      : matchMedia('(prefers-color-scheme: dark)').matches;
  const theme = document.getElementById('theme');
  const sayTheme = () => theme.setAttribute('aria-pressed', String(isDark()));
  theme.addEventListener('click', () => {
    root.dataset.theme = isDark() ? 'light' : 'dark';
    sayTheme();
  });
  sayTheme();

  document.getElementById('share').addEventListener('click', async () => {
    const card = document.getElementById('card').innerHTML.trim();
    const picture = new Image();
    picture.src = 'data:image/svg+xml;charset=utf-8,' + encodeURIComponent(card);
    await picture.decode();
    const canvas = document.createElement('canvas');
    canvas.width = 1200;
    canvas.height = 630;
    canvas.getContext('2d').drawImage(picture, 0, 0, 1200, 630);
    const blob = await new Promise((done) => canvas.toBlob(done, 'image/png'));
    const file = new File([blob], data.fileName, {type: 'image/png'});
    if (navigator.canShare && navigator.canShare({files: [file]})) {
      await navigator.share({files: [file]}).catch(() => {});
      return;
    }
    const link = document.createElement('a');
    link.href = URL.createObjectURL(blob);
    link.download = data.fileName;
    link.click();
    setTimeout(() => URL.revokeObjectURL(link.href), 60000);
  });

  show(0);
})();
