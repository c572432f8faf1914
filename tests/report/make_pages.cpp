// Writes the reports of a few simulated networks into a directory, for a browser to look at.
#include <cstdio>
#include <exception>
#include <fstream>

#include "tests/report/story.h"

namespace {

using namespace erps::lab;

constexpr int64_t kSecondUs = erps::sim::kSecondUs;
constexpr int64_t kComeHomeUs = 20 * kSecondUs;

void write(const std::string& path, const Story& story) {
  std::ofstream file(path);
  file << report_page(story.input());
  if (!file.flush()) {
    throw std::runtime_error("cannot write " + path);
  }
}

Story four_nodes() {
  const Topology ring = example("four-node-ring.toml");
  Story story =
      tell(ring,
           {cut(ring, "n1-n2", kComeHomeUs), restore(ring, "n1-n2", 10 * kSecondUs),
            forced_switch(ring, "n3", "n2-n3", kComeHomeUs), clear(ring, "n3", 8 * kSecondUs),
            crash(ring, "n2", kComeHomeUs), power_on(ring, "n2", 9 * kSecondUs)},
           kComeHomeUs);
  return story;
}

Story ladder() {
  const Topology rings = example("ladder.toml");
  return tell(rings,
              {cut(rings, "n2-n5", kComeHomeUs), restore(rings, "n2-n5", 10 * kSecondUs),
               cut(rings, "n1-n2", kComeHomeUs), cut(rings, "n2-n3", 3 * kSecondUs),
               restore(rings, "n1-n2", 10 * kSecondUs), restore(rings, "n2-n3", 10 * kSecondUs)},
              kComeHomeUs);
}

Story large(size_t nodes) {
  const Topology ring = ring_of(nodes);
  std::vector<Act> acts;
  for (LinkIndex link = 0; link < nodes; link += nodes / 4) {
    acts.push_back(cut(ring, ring.links[link].name, kComeHomeUs));
    acts.push_back(restore(ring, ring.links[link].name, 10 * kSecondUs));
  }
  return tell(ring, acts, kComeHomeUs);
}

// Names that a topology file cannot have, but that a page must bear.
Story hostile() {
  Topology ring = example("four-node-ring.toml");
  ring.name = "</title><img src=x onerror=alert(1)>";
  Story story = tell(ring, {cut(ring, "n1-n2", kComeHomeUs)}, kSecondUs);
  const std::string name = "<img src=x onerror=alert(1)>";
  story.topology.nodes[0].name = name;
  story.faults[0].text = "cut " + name;
  story.faults[0].remark = name;
  story.faults[0].held = false;
  story.findings.push_back(
      {"partition", story.faults[0].at_us, story.end_us, NodeIndex{0}, name, ""});
  story.findings.push_back({"loop", 0, 10, std::nullopt, name, "a known surprise"});
  return story;
}

Story cut_off() {
  const Topology ring = example("four-node-ring.toml");
  return tell(ring, {cut(ring, "n1-n2", kComeHomeUs), restore(ring, "n1-n2", kComeHomeUs)},
              kComeHomeUs, {60, 20, 3, 20, 5});
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: report_pages DIRECTORY\n");
    return 2;
  }
  const std::string directory = argv[1];
  try {
    write(directory + "/four.html", four_nodes());
    write(directory + "/ladder.html", ladder());
    write(directory + "/three.html", tell(example("three-rings.toml"), {}, kComeHomeUs));
    write(directory + "/hostile.html", hostile());
    write(directory + "/cut-off.html", cut_off());
    for (const size_t nodes : {16, 64, 255}) {
      write(directory + "/ring-" + std::to_string(nodes) + ".html", large(nodes));
    }
  } catch (const std::exception& error) {
    std::fprintf(stderr, "report_pages: %s\n", error.what());
    return 1;
  }
  return 0;
}
