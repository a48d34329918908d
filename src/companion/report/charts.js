"use strict";

/* Events over time, stacked by what a column holds. */
const charts = (() => {
    const kBins = 240, kSeries = 8;
    const kColours = ["#3f7fd6", "#d9822b", "#3a9e5f", "#c4463a", "#8a63c9", "#2fa3a8", "#b8902a", "#d4609a", "#8a92a0"];
    const made = [];

    function range() {
        const from = Math.max(model.selection.from, model.extent[0]);
        const to = Math.min(model.selection.to, model.extent[1]);
        return to > from ? [from, to] : [from, from + 1];
    }

    /* The rows that are shown, counted by time and series; the last series holds what is too rare for one. */
    function binned(name, ranking) {
        const [from, to] = range();
        const width = (to - from) / kBins;
        const series = new Map(ranking.slice(0, kSeries).map(([string], at) => [string, at]));
        const seriesCount = Math.max(1, Math.min(ranking.length, kSeries + 1));
        const bins = [];
        for (let at = 0; at <= kBins; ++at) {
            bins.push([new Date(from + at * width), ...new Array(seriesCount).fill(0)]);
        }
        const column = model.columns[name];
        for (const row of model.shown) {
            const bin = Math.min(kBins - 1, Math.floor((model.time[row] - from) / width));
            ++bins[bin][1 + (series.get(column[row]) ?? kSeries)];
        }
        return bins;
    }

    function drawLegend(chart, ranking) {
        chart.legend.replaceChildren(...ranking.slice(0, kSeries).map(([string, count], at) => {
            const button = element("button", undefined, {type: "button"});
            const swatch = element("span", "", {className: "swatch"});
            swatch.style.background = kColours[at];
            button.append(swatch, shortName(model.strings[string]) || "(no program)", " ",
                          element("span", grouped(count), {className: "number"}));
            button.setAttribute("aria-pressed", String(model.selection[chart.name] === string));
            button.addEventListener("click", () => page.toggle(chart.name, string));
            const item = element("li");
            item.append(button);
            return item;
        }));
        if (ranking.length > kSeries) {
            const others = element("li");
            const swatch = element("span", "", {className: "swatch"});
            swatch.style.background = kColours[kSeries];
            others.append(swatch, `${ranking.length - kSeries} others`);
            chart.legend.append(others);
        }
    }

    function draw() {
        const style = getComputedStyle(document.documentElement);
        const line = style.getPropertyValue("--line");
        for (const chart of made) {
            const ranking = model.ranking(chart.name);
            const file = binned(chart.name, ranking);
            const labels = ["time", ...file[0].slice(1).map((_, at) => `series ${at}`)];
            const options = {
                file, labels, colors: kColours.slice(0, labels.length - 1), dateWindow: null,
                gridLineColor: line, axisLineColor: line,
            };
            if (chart.graph === undefined) {
                // The constructor takes the data apart from the options.
                delete options.file;
                chart.graph = new Dygraph(chart.box, file, {
                    ...options, stackedGraph: true, stepPlot: true, fillGraph: true, fillAlpha: 0.7, strokeWidth: 1,
                    axes: {y: {axisLabelFormatter: (count) => Number.isInteger(count) ? grouped(count) : ""}},
                    labelsUTC: true, legend: "never", includeZero: true, axisLabelFontSize: 12,
                    highlightCircleSize: 0, zoomCallback: (from, to) => page.zoom(from, to),
                });
            } else {
                chart.graph.updateOptions(options);
            }
            drawLegend(chart, ranking);
            chart.box.setAttribute("aria-label", `${grouped(model.shown.length)} events over time by ${chart.name}; ` +
                ranking.slice(0, 3).map(([string, count]) => `${shortName(model.strings[string])} ${count}`).join(", "));
        }
    }

    function scale(factor, shift) {
        const [from, to] = range();
        const half = (to - from) / 2 * factor;
        const middle = (from + to) / 2 + (to - from) * shift;
        page.zoom(middle - half, middle + half);
    }

    const kMoves = [
        ["+", "Zoom in", () => scale(0.5, 0)], ["\u2212", "Zoom out", () => scale(2, 0)],
        ["\u2190", "Earlier", () => scale(1, -0.25)], ["\u2192", "Later", () => scale(1, 0.25)],
        ["All", "All of the time", () => page.zoom(-Infinity, Infinity)],
    ];
    const kKeys = {"+": 0, "=": 0, "-": 1, "ArrowLeft": 2, "ArrowRight": 3, "0": 4};

    function add(name) {
        const box = document.getElementById(`${name}-chart`);
        made.push({name, box, legend: document.getElementById(`${name}-legend`)});
        box.addEventListener("keydown", (event) => {
            if (!(event.key in kKeys) || event.ctrlKey || event.metaKey) return;
            event.preventDefault();
            kMoves[kKeys[event.key]][2]();
        });
        box.addEventListener("dblclick", () => page.zoom(-Infinity, Infinity));
        box.previousElementSibling.append(...kMoves.map(([sign, title, move]) => {
            const button = element("button", sign, {type: "button", title, onclick: move});
            button.setAttribute("aria-label", title);
            return button;
        }));
    }

    return {add, draw, graphs: () => made.map((chart) => chart.graph)};
})();
