"use strict";

/* The noisiest processes, and the keys as a tree. */
const lists = (() => {
    const kProcesses = 25, kChildren = 200;
    // Paths that the user opened; with a minus in front, those that he closed though they are opened by
    // themselves.
    const open = new Set();

    function drawProcesses() {
        const ranking = model.ranking("process").slice(0, kProcesses);
        const most = ranking.length > 0 ? ranking[0][1] : 1;
        document.getElementById("processes").replaceChildren(...ranking.map(([string, count]) => {
            const button = element("button", undefined, {type: "button", title: model.strings[string]});
            button.append(shortName(model.strings[string]) || "(no program)", " ",
                          element("span", grouped(count), {className: "number"}));
            button.setAttribute("aria-pressed", String(model.selection.process === string));
            button.addEventListener("click", () => page.toggle("process", string));
            const bar = element("div", "", {className: "bar"});
            bar.style.width = `${100 * count / most}%`;
            const item = element("li");
            item.append(button, bar);
            return item;
        }));
    }

    /* The components below a path with their counts, and whether there is something below them. */
    function children(counts, path) {
        const start = path === "" ? 0 : path.length + 1;
        const found = new Map();
        for (const [key, count] of counts) {
            if (start > 0 && !key.startsWith(path + "\\")) continue;
            // The backslash that a kernel's path begins with belongs to its first component: none is empty there.
            const end = key.indexOf("\\", Math.max(start, 1));
            const name = end < 0 ? key.slice(start) : key.slice(start, end);
            const child = found.get(name) ?? {name, count: 0, isParent: false};
            child.count += count;
            child.isParent ||= end >= 0;
            found.set(name, child);
        }
        return [...found.values()].sort((a, b) => b.count - a.count || (a.name < b.name ? -1 : 1));
    }

    function branch(counts, path, list) {
        const all = children(counts, path);
        for (const child of all.slice(0, kChildren)) {
            const childPath = path === "" ? child.name : `${path}\\${child.name}`;
            // A branch without alternatives is opened along with what leads to it.
            const isOpen = child.isParent && (open.has(childPath) || (all.length === 1 && !open.has(`-${childPath}`)));
            list.append(node(counts, child, childPath, isOpen));
        }
        if (all.length > kChildren) {
            list.append(element("li", `${grouped(all.length - kChildren)} more`));
        }
    }

    function node(counts, child, path, isOpen) {
        const item = element("li");
        if (child.isParent) {
            const opener = element("button", isOpen ? "\u25be" : "\u25b8", {type: "button", className: "opener"});
            opener.setAttribute("aria-expanded", String(isOpen));
            opener.setAttribute("aria-label", `Keys below ${child.name}`);
            opener.addEventListener("click", () => {
                open.delete(isOpen ? path : `-${path}`);
                open.add(isOpen ? `-${path}` : path);
                drawTree();
            });
            item.append(opener);
        } else {
            item.append(element("span", "", {className: "opener", style: "display:inline-block"}));
        }
        const button = element("button", undefined, {type: "button"});
        button.append(child.name || "(no name)", " ", element("span", grouped(child.count), {className: "number"}));
        button.setAttribute("aria-pressed", String(model.selection.key === path));
        button.addEventListener("click", () => page.toggle("key", path));
        item.append(button);
        if (isOpen) {
            const list = element("ul");
            branch(counts, path, list);
            item.append(list);
        }
        return item;
    }

    function drawTree() {
        const counts = model.ranking("key").map(([string, count]) => [model.strings[string], count]);
        const tree = document.getElementById("tree");
        const list = document.createDocumentFragment();
        branch(counts, "", list);
        tree.replaceChildren(list);
    }

    return {draw() { drawProcesses(); drawTree(); }};
})();
