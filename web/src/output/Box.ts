const changed = new Set<Box>();

/**
 * An element of which the browser lays out only what is in view, and the rows that it stands for until then. What is added counts for all boxes
 * around it, too; the elements are told once a frame, by Box.settle().
 */
export class Box {
    rows = 0;
    /** Of what stands directly in it. */
    count = 0;

    parent: Box | undefined;

    constructor(readonly element: HTMLElement) {}

    static make(className: string, parent?: Box, tag = "div"): Box {
        const element = document.createElement(tag);
        element.className = className;
        const box = new Box(element);
        if (parent) box.attachTo(parent);
        return box;
    }

    /** Puts it at the end of `parent`. */
    attachTo(parent: Box): void {
        this.parent = parent;
        parent.element.append(this.element);
        ++parent.count;
        parent.addRows(this.rows);
    }

    addRows(rows: number): void {
        for (let box: Box | undefined = this; box; box = box.parent) {
            box.rows += rows;
            changed.add(box);
        }
    }

    /** Result: how many boxes are left in its parent. */
    remove(): number {
        this.parent?.addRows(-this.rows);
        this.element.remove();
        changed.delete(this);
        return this.parent ? --this.parent.count : 0;
    }

    static settle(): void {
        for (const {element, rows} of changed) element.style.setProperty("--rows", String(rows));
        changed.clear();
    }
}
