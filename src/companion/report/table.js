"use strict";

/* The rows that are shown; the page holds only those that are in view. */
const table = (() => {
    const kHeight = 24, kMargin = 10, kTallest = 12000000, kPrinted = 500;
    const kColumns = [["time", "Time, UTC"], ["operation", "Operation"], ["process", "Program"], ["key", "Key"],
                      ["value", "Value"], ["data", "Data"], ["stanza", "Stanza"], ["status", "Status"]];
    const view = document.getElementById("rows");
    const space = document.getElementById("rows-space");
    const rows = document.getElementById("rows-shown");
    let current = 0;

    function cellText(name, row) {
        if (name === "time") return clock(model.time[row]);
        const text = model.text(name, row);
        return name === "process" ? shortName(text) : text;
    }

    function line(at) {
        const row = model.shown[at];
        const made = element("div", undefined, {className: at === current ? "row current" : "row"});
        made.setAttribute("role", "row");
        made.setAttribute("aria-rowindex", String(at + 1));
        for (const [name] of kColumns) {
            const text = cellText(name, row);
            const cell = element("span", text, {className: name, title: text});
            cell.setAttribute("role", "cell");
            if (name === "status" && text.startsWith("-")) cell.classList.add("failed");
            made.append(cell);
        }
        made.addEventListener("click", () => { current = at; details(row); draw(); });
        return made;
    }

    /* A page can only be so tall; beyond that the scroll bar stands for more rows than it has room for. */
    function stretch() {
        return Math.max(1, model.shown.length * kHeight / kTallest);
    }

    function draw() {
        const count = model.shown.length;
        const first = Math.max(0, Math.floor(view.scrollTop * stretch() / kHeight) - kMargin);
        const end = Math.min(count, first + Math.ceil(view.clientHeight / kHeight) + 2 * kMargin);
        const above = Math.floor(view.scrollTop * stretch() / kHeight) - first;
        // Rows have their height however far the scroll bar is stretched, so they hang at what is in view.
        rows.style.top = `${Math.max(0, view.scrollTop - above * kHeight)}px`;
        if (stretch() === 1) rows.style.top = `${first * kHeight}px`;
        const made = [];
        for (let at = first; at < end; ++at) {
            made.push(line(at));
        }
        rows.replaceChildren(...made);
    }

    function details(row) {
        const texts = [...kColumns.map(([name, title]) => [title, cellText(name, row)]),
                       ["Path of the program", model.text("process", row)], ["Process", model.text("pid", row)],
                       ["Message", model.text("message", row)], ["Type", model.text("type", row)]];
        document.getElementById("fields").replaceChildren(...texts.filter(([, text]) => text !== "")
            .flatMap(([title, text]) => [element("dt", title), element("dd", text)]));
        document.getElementById("details").showModal();
    }

    function move(by) {
        current = Math.min(Math.max(0, current + by), model.shown.length - 1);
        const top = current * kHeight / stretch();
        if (top < view.scrollTop) view.scrollTop = top;
        if (top + kHeight > view.scrollTop + view.clientHeight) view.scrollTop = top + kHeight - view.clientHeight;
        draw();
    }

    const kMoves = {ArrowUp: -1, ArrowDown: 1, PageUp: -20, PageDown: 20, Home: -1e9, End: 1e9};

    function start() {
        document.getElementById("table-head").append(...kColumns.map(([, title]) => {
            const cell = element("span", title);
            cell.setAttribute("role", "columnheader");
            return cell;
        }));
        view.addEventListener("scroll", draw);
        view.addEventListener("keydown", (event) => {
            if (event.key === "Enter" && model.shown.length > 0) details(model.shown[current]);
            else if (event.key in kMoves) move(kMoves[event.key]);
            else return;
            event.preventDefault();
        });
        addEventListener("beforeprint", print);
    }

    function print() {
        const made = [element("caption", `The first ${Math.min(kPrinted, model.shown.length)} events`), element("tr")];
        made[1].append(...kColumns.map(([, title]) => element("th", title)));
        for (const row of model.shown.subarray(0, kPrinted)) {
            const printed = element("tr");
            printed.append(...kColumns.map(([name]) => element("td", cellText(name, row))));
            made.push(printed);
        }
        document.getElementById("printed").replaceChildren(...made);
    }

    return {
        start,
        refresh() {
            current = 0;
            space.style.height = `${model.shown.length * kHeight / stretch()}px`;
            view.scrollTop = 0;
            document.getElementById("table").setAttribute("aria-rowcount", String(model.shown.length));
            draw();
        },
    };
})();
