// Draws a figure's chart from the tables beside it: what is drawn is what stands there.
'use strict';
(() => {
  const root = document.documentElement;
  const colour = name => getComputedStyle(root).getPropertyValue('--' + name).trim();

  // A table's rows: the text of each cell, its number, and whether something in it is bad.
  const rowsOf = (figure, role) =>
    [...figure.querySelectorAll(`table[data-role="${role}"] tbody tr`)].map(row => {
      const text = [...row.cells].map(cell => cell.textContent);
      return { text, number: text.map(parseFloat), isBad: row.querySelector('.bad') !== null };
    });

  const axis = (title, more) => ({
    title: { display: true, text: title, color: colour('quiet') },
    grid: { color: colour('rule') }, ticks: { color: colour('quiet'), includeBounds: false }, ...more,
  });
  const options = (scales, more) => ({
    animation: false, scales,
    plugins: {
      legend: { labels: {
        color: colour('ink'), usePointStyle: true, boxWidth: 8, boxHeight: 8,
        filter: (item, { datasets }) => datasets.findIndex(set => set.label === item.text) === item.datasetIndex } },
      ...more },
  });

  // Names beside the points of a data set that has them, where there is room.
  const names = {
    id: 'names',
    afterDatasetsDraw(chart) {
      const taken = [];
      const context = chart.ctx;
      context.save();
      context.font = '11px sans-serif';
      context.fillStyle = colour('ink');
      chart.data.datasets.forEach((set, index) => {
        if (!set.isNamed || !chart.isDatasetVisible(index)) return;
        chart.getDatasetMeta(index).data.forEach((point, i) => {
          const width = context.measureText(set.data[i].name).width;
          const x = point.x + 8 + width > chart.chartArea.right ? point.x - 8 - width : point.x + 8;
          const isFree = taken.every(at => Math.abs(at.y - point.y) > 12 || at.x > x + width || at.x + at.width < x);
          if (!isFree || taken.length >= 40) return;
          taken.push({ x, y: point.y, width });
          context.fillText(set.data[i].name, x, point.y + 4);
        });
      });
      context.restore();
    },
  };

  // R/G against B/G, the same length for the same difference in both: a tolerance is a circle.
  const ratios = figure => {
    const pointOf = row => ({ name: row.text[0], x: row.number[1], y: row.number[2] });
    const points = rowsOf(figure, 'points');
    const golden = rowsOf(figure, 'golden').map(row => ({ ...pointOf(row), limit: row.number[3] }));
    const density = rowsOf(figure, 'density').map(row =>
      ({ x: row.number[0], y: row.number[1], units: row.number[2] }));
    const circle = ({ x, y, limit }) => Array.from({ length: 181 }, (_, i) =>
      ({ x: x + limit * Math.cos(i * Math.PI / 90), y: y + limit * Math.sin(i * Math.PI / 90) }));
    const passing = points.filter(row => !row.isBad).map(pointOf);
    const failing = points.filter(row => row.isBad).map(pointOf);
    const datasets = [];
    const add = (label, data, look) => { if (data.length > 0) datasets.push({ label, data, ...look }); };
    add('golden sample', golden, {
      pointStyle: 'crossRot', radius: 9, hoverRadius: 9, borderWidth: 3, borderColor: colour('ink') });
    golden.forEach(each => add('tolerance', circle(each), {
      type: 'line', pointRadius: 0, pointHitRadius: 0, borderDash: [6, 4], borderWidth: 1.5, borderColor: colour('ink'),
      pointStyle: 'line' }));
    add('fails', failing, {
      pointStyle: 'triangle', radius: 6, backgroundColor: colour('beyond'), borderColor: colour('paper'), isNamed: true });
    add('passes', passing, {
      pointStyle: 'circle', radius: points.length > 300 ? 2 : 4, backgroundColor: colour('within') + 'b0',
      borderWidth: 0, isNamed: points.length < 10 });
    const most = Math.max(1, ...density.map(cell => cell.units));
    const step = parseFloat(figure.querySelector('[data-step]')?.dataset.step ?? '0');
    add('units', density, {
      pointStyle: 'rect', borderWidth: 0,
      backgroundColor: density.map(cell => colour('s' + Math.min(7, Math.floor(8 * Math.log(cell.units) / Math.log(most + 1))))),
      radius: context => {
        const scale = context.chart.scales.x;
        return 1.02 * (scale.getPixelForValue(step) - scale.getPixelForValue(0)) / Math.SQRT2;
      } });
    const all = datasets.flatMap(set => set.data);
    const range = key => [Math.min(...all.map(each => each[key])), Math.max(...all.map(each => each[key]))];
    const [left, right] = range('x');
    const [bottom, top] = range('y');
    const half = 0.54 * Math.max(right - left, top - bottom, 0.01);
    const around = (low, high) => ({ min: (low + high) / 2 - half, max: (low + high) / 2 + half });
    return {
      type: 'scatter', data: { datasets }, plugins: [names],
      options: {
        aspectRatio: 1,
        ...options({ x: axis('R/G', around(left, right)), y: axis('B/G', around(bottom, top)) }, {
          tooltip: { callbacks: { label: ({ raw }) =>
            `${raw.name ?? (raw.units === undefined ? 'tolerance' : raw.units + ' units')} ` +
            `(${raw.x.toFixed(4)}, ${raw.y.toFixed(4)})` } } }),
      },
    };
  };

  const histogram = figure => {
    const bins = rowsOf(figure, 'bins');
    const set = (label, isBad, name) => ({
      label, data: bins.map(bin => bin.isBad === isBad ? bin.number[1] : null), backgroundColor: colour(name),
      borderColor: colour('ink'), borderWidth: isBad ? 1 : 0 });
    return {
      type: 'bar',
      data: {
        labels: bins.map(bin => bin.text[0]),
        datasets: [set('within the limit', false, 'within'), set('beyond the limit', true, 'beyond')],
      },
      options: options({
        x: axis('percent of the limit', { stacked: true }), y: axis('units', { stacked: true }) }),
    };
  };

  // Units as bars, a share of them as a line.
  const shares = (figure, label, units, share, title) => {
    const rows = rowsOf(figure, 'rows');
    const line = {
      type: 'line', label: title, data: rows.map(row => row.number[share]), yAxisID: 'share', borderColor: colour('beyond'),
      backgroundColor: colour('beyond'), pointRadius: 3, spanGaps: true };
    const bars = {
      label: 'units', data: rows.map(row => row.number[units]), yAxisID: 'units', backgroundColor: colour('s3') };
    return {
      type: 'bar', data: { labels: rows.map(row => row.text[label]), datasets: [line, bars] },
      options: options({
        x: axis(''), units: axis('units', { axis: 'y', beginAtZero: true }),
        share: axis(title, { axis: 'y', position: 'right', min: 0, max: 100, grid: { display: false } }) }),
    };
  };

  // R/G, after, ratio, B/G, after, ratio are a row's last six numbers.
  const change = figure => {
    const rows = rowsOf(figure, 'rows');
    const set = (label, name, first, look) => ({
      label, showLine: true, borderColor: colour(name), backgroundColor: colour(name), borderWidth: 1.5, radius: 4,
      data: rows.map(row => {
        const last = row.number.slice(-6);
        return { name: row.text.slice(0, -6).join(', '), x: last[first], y: last[3 + first] };
      }),
      ...look });
    return {
      type: 'scatter',
      data: { datasets: [
        set('before', 'quiet', 0, { pointStyle: 'circle', borderDash: [5, 4] }),
        set('after', 'within', 1, { pointStyle: 'triangle' })] },
      options: options({ x: axis('R/G'), y: axis('B/G') }, {
        tooltip: { callbacks: { label: ({ raw }) => `${raw.name}: ${raw.x}, ${raw.y}` } } }),
    };
  };

  const kinds = {
    ratios, histogram, change,
    days: figure => shares(figure, 0, 1, 2, 'yield, %'),
    pareto: figure => shares(figure, 3, 0, 2, 'together, %'),
  };

  const charts = [];
  const draw = () => {
    charts.splice(0).forEach(chart => chart.destroy());
    for (const figure of document.querySelectorAll('figure[data-chart]'))
      charts.push(new Chart(figure.querySelector('canvas'), kinds[figure.dataset.chart](figure)));
  };

  root.classList.add('scripted');
  for (const numbers of document.querySelectorAll('figure details')) numbers.open = false;
  draw();
  matchMedia('(prefers-color-scheme: dark)').addEventListener('change', draw);
  // Paper is light.
  addEventListener('beforeprint', () => { root.classList.add('on-paper'); draw(); });
  addEventListener('afterprint', () => { root.classList.remove('on-paper'); draw(); });
})();
