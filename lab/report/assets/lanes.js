// The lanes of the time line: for each ring its nodes in ring order, then, of a closed ring, the
// first one again, so that messages over the last link have where to arrive.

function laneSizes(count) {
  if (count <= 10) return {lane: 72, band: 20, bandTop: 4, ports: [32, 39], timers: [46, 57], timer: 9, text: true};
  if (count <= 26) return {lane: 42, band: 15, bandTop: 3, ports: [23, 28], timers: [33, 37], timer: 3, text: true};
  return {lane: 25, band: 10, bandTop: 2, ports: [15, 18], timers: [20, 22], timer: 1.5, text: false};
}

class Lanes {
  constructor(run) {
    const count = run.rings.reduce((sum, ring) => sum + ring.nodes.length, 0);
    this.sizes = laneSizes(count);
    this.list = [];
    this.titles = [];
    let y = 4;
    run.rings.forEach((ring, index) => {
      if (run.rings.length > 1) {
        const kind = ring.open ? `sub-ring of ring ${run.rings[ring.major].id}` : "major ring";
        this.titles.push({y, text: `Ring ${ring.id} – ${kind}`});
        y += 22;
      }
      for (const node of ring.nodes) {
        const place = run.places.findIndex((each) => each.ring === index && each.node === node);
        const ends = [];
        for (const link of ring.links) {
          for (const end of [0, 1]) if (run.links[link].nodes[end] === node) ends.push(2 * link + end);
        }
        this.list.push({ring: index, node, place, ends, y, again: false,
          role: ring.owner === node ? "owner" : ring.neighbour === node ? "neighbour" : ""});
        y += this.sizes.lane;
      }
      if (!ring.open) {
        this.list.push({ring: index, node: ring.nodes[0], place: -1, ends: [], y, again: true, role: ""});
        y += 20;
      }
      y += 6;
    });
    this.height = y;
    this.byPlace = new Map(this.list.filter(({again}) => !again).map((lane) => [lane.place, lane]));
    this.laneOfEnd = new Map();
    for (const lane of this.list) for (const end of lane.ends) this.laneOfEnd.set(end, lane);
    this.again = new Map(this.list.filter(({again}) => again).map((lane) => [lane.ring, lane]));
  }

  // The lanes that a message leaves and arrives at, or null over a link of no ring. Over the link
  // from the last node to the first it goes through the lane that is there twice.
  ofMessage(run, message) {
    const from = this.laneOfEnd.get(message.strand), to = this.laneOfEnd.get(message.strand ^ 1);
    if (!from || !to) return null;
    const ring = run.rings[from.ring];
    const again = this.again.get(from.ring);
    if (again && message.link === ring.links.at(-1)) {
      if (to.node === ring.nodes[0]) return [from, again];
      return [again, to];
    }
    return [from, to];
  }
}
