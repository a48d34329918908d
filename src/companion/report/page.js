"use strict";

/* What the user does, and what follows from it. */
const page = (() => {
    const byId = (id) => document.getElementById(id);
    const kNoFilter = {operation: null, process: null, key: null, text: "", from: -Infinity, to: Infinity};

    function chip(title, changes) {
        const button = element("button", `${title} \u00d7`, {type: "button"});
        button.setAttribute("aria-label", `Remove the filter ${title}`);
        button.addEventListener("click", () => apply(changes));
        const item = element("li");
        item.append(button);
        return item;
    }

    function drawChips() {
        const {operation, process, key, text, from, to} = model.selection;
        const chips = [];
        if (operation !== null) chips.push(chip(model.strings[operation], {operation: null}));
        if (process !== null) chips.push(chip(shortName(model.strings[process]) || "(no program)", {process: null}));
        if (key !== null) chips.push(chip(key, {key: null}));
        if (text !== "") chips.push(chip(`\u201c${text}\u201d`, {text: ""}));
        if (from > -Infinity || to < Infinity) chips.push(chip("a part of the time", {from: -Infinity, to: Infinity}));
        byId("chips").replaceChildren(...chips);
    }

    const field = (milliseconds) => isFinite(milliseconds) ? new Date(milliseconds).toISOString().slice(0, 19) : "";

    function draw() {
        byId("count").textContent = `${grouped(model.shown.length)} of ${grouped(model.count)} events`;
        if (byId("search").value !== model.selection.text) byId("search").value = model.selection.text;
        byId("from").value = field(model.selection.from);
        byId("to").value = field(model.selection.to);
        drawChips();
        charts.draw();
        lists.draw();
        table.refresh();
    }

    function apply(changes) {
        model.select(changes);
        draw();
    }

    function zoom(from, to) {
        const isAll = from <= model.extent[0] && to >= model.extent[1];
        apply(isAll ? {from: -Infinity, to: Infinity} : {from: Math.max(from, model.extent[0]), to: Math.min(to, model.extent[1])});
    }

    function switchTheme() {
        const root = document.documentElement;
        const isDark = root.dataset.theme === "dark" ||
            (root.dataset.theme === undefined && matchMedia("(prefers-color-scheme: dark)").matches);
        root.dataset.theme = isDark ? "light" : "dark";
        charts.draw();
    }

    /* Time fields have no zone, and the page has UTC throughout. */
    const chosen = (id, none) => byId(id).value === "" ? none : Date.parse(`${byId(id).value}Z`);

    function start() {
        let waiting;
        byId("search").addEventListener("input", () => {
            // Not at each keystroke: the page is drawn anew once the user pauses.
            clearTimeout(waiting);
            waiting = setTimeout(() => apply({text: byId("search").value}), 150);
        });
        for (const id of ["from", "to"]) {
            byId(id).addEventListener("change", () => apply({from: chosen("from", -Infinity), to: chosen("to", Infinity)}));
        }
        byId("reset").addEventListener("click", () => apply(kNoFilter));
        byId("theme").addEventListener("click", switchTheme);
        matchMedia("(prefers-color-scheme: dark)").addEventListener("change", charts.draw);
        charts.add("operation");
        charts.add("process");
        table.start();
        apply(kNoFilter);
    }

    return {start, zoom, toggle: (name, value) => apply({[name]: model.selection[name] === value ? null : value})};
})();

page.start();
performance.mark("ready");
