"use strict";

/* The events and what is selected of them. Texts are kept once, in `strings`; a column holds their numbers. */
const model = (() => {
    const data = JSON.parse(document.getElementById("data").textContent);
    const strings = data.strings;
    const columns = {};
    for (const name of Object.keys(data.columns)) {
        columns[name] = Uint32Array.from(data.columns[name]);
    }
    const count = data.time.length;
    const time = new Float64Array(count);
    let last = 0;
    for (let at = 0; at < count; ++at) {
        last += data.time[at];
        time[at] = last;
    }
    // Strings in lower case, made at the first search: a page that is only looked at needs none.
    const lowered = new Array(strings.length);
    const searched = ["operation", "process", "key", "value", "data", "stanza"];
    const selection = {operation: null, process: null, key: null, text: "", from: -Infinity, to: Infinity};
    let shown = new Uint32Array(count);

    function extent() {
        let first = Infinity, end = -Infinity;
        for (let at = 0; at < count; ++at) {
            if (time[at] < first) first = time[at];
            if (time[at] > end) end = time[at];
        }
        return count > 0 ? [first, end] : [0, 0];
    }

    /* For each string, whether the test holds. */
    function marks(test) {
        // Strings are few where rows are many: a row then costs one look into the table.
        const found = new Uint8Array(strings.length);
        for (let at = 0; at < strings.length; ++at) {
            found[at] = test(at) ? 1 : 0;
        }
        return found;
    }

    function textMarks() {
        const wanted = selection.text.toLowerCase();
        return marks((at) => {
            if (lowered[at] === undefined) lowered[at] = strings[at].toLowerCase();
            return lowered[at].includes(wanted);
        });
    }

    function keyMarks() {
        // Below no key at all there is nothing.
        const below = selection.key === "" ? null : selection.key + "\\";
        return marks((at) => strings[at] === selection.key || (below !== null && strings[at].startsWith(below)));
    }

    function matchesText(found, row) {
        for (const name of searched) {
            if (found[columns[name][row]]) return true;
        }
        return false;
    }

    function select(changes) {
        Object.assign(selection, changes);
        const texts = selection.text === "" ? null : textMarks();
        const keys = selection.key === null ? null : keyMarks();
        // In one pass over typed arrays: a page has hundreds of thousands of rows, and follows each
        // keystroke.
        const all = new Uint32Array(count);
        let used = 0;
        for (let row = 0; row < count; ++row) {
            if (selection.operation !== null && columns.operation[row] !== selection.operation) continue;
            if (selection.process !== null && columns.process[row] !== selection.process) continue;
            if (time[row] < selection.from || time[row] > selection.to) continue;
            if (keys !== null && !keys[columns.key[row]]) continue;
            if (texts !== null && !matchesText(texts, row)) continue;
            all[used++] = row;
        }
        shown = all.subarray(0, used);
    }

    /* How often each string stands in a column of the rows that are shown, the most frequent first. */
    function ranking(name) {
        const counts = new Uint32Array(strings.length);
        const column = columns[name];
        for (const row of shown) {
            ++counts[column[row]];
        }
        const used = [];
        for (let at = 0; at < counts.length; ++at) {
            if (counts[at] > 0) used.push([at, counts[at]]);
        }
        return used.sort((a, b) => b[1] - a[1] || (strings[a[0]] < strings[b[0]] ? -1 : 1));
    }

    return {
        strings, columns, time, count, selection, select, ranking, extent: extent(),
        get shown() { return shown; },
        text: (name, row) => strings[columns[name][row]],
    };
})();

const shortName = (path) => path.slice(Math.max(path.lastIndexOf("\\"), path.lastIndexOf("/")) + 1) || path;
const clock = (milliseconds) => new Date(milliseconds).toISOString().replace("T", " ").replace("Z", "");
const grouped = (number) => number.toLocaleString("en-US");

/* An element with text in it. Text of events goes into the page in this way alone, so that it stays text. */
function element(tag, text, properties) {
    const made = document.createElement(tag);
    if (text !== undefined) made.textContent = text;
    return Object.assign(made, properties);
}
