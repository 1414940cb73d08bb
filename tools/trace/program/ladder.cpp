// SPDX-License-Identifier: GPL-2.0-only
#include "trace/program/ladder.h"

#include <fmt/format.h>

#include <pugixml.hpp>
#include <sstream>

#include "trace/core/text.h"

namespace trace {
namespace {

// Pixels.
constexpr int kLeft = 150;
constexpr int kRight = 450;
constexpr int kWidth = 1100;
constexpr int kHead = 90;
constexpr int kStep = 34;
constexpr int kFoot = 50;

double Seconds(const SLadder& ladder, const SRung& rung) {
  return static_cast<double>(rung.time - ladder.rungs.front().time) / static_cast<double>(kSecond);
}

std::string Title(const SCall& call) {
  return fmt::format("Call {}: {} -> {}, card {} trunk {} timeslot {}, {}{}", call.number, Printable(call.calling),
                     Printable(call.called), CardName(call), call.trunk + 1,
                     call.timeslot < 0 ? "?" : std::to_string(call.timeslot), IsoTime(call.begin),
                     call.isBegunBefore ? ", begun before the capture" : "");
}

std::string Ending(const SCall& call) {
  std::string text = EndName(call.how);
  if (call.clearedBy) {
    text += fmt::format(", cleared by the {}", ClearedByName(call));
  }
  return call.cause < 0 ? text : text + fmt::format(", cause {} {}", call.cause, CauseName(call.cause));
}

// An arrow of so many characters with its name in the middle.
std::string Arrow(const SRung& rung) {
  constexpr std::size_t kLength = 28;
  const std::string middle = fmt::format("{:-^{}}", " " + rung.name + " ", kLength);
  return rung.toLibrary ? "|" + middle + ">|" : "|<" + middle + "|";
}

void SetText(pugi::xml_node parent, int x, int y, const char* anchor, const std::string& text) {
  pugi::xml_node node = parent.append_child("text");
  node.append_attribute("x") = x;
  node.append_attribute("y") = y;
  node.append_attribute("text-anchor") = anchor;
  node.text() = text.c_str();
}

pugi::xml_node AddLine(pugi::xml_node parent, int fromX, int fromY, int toX, int toY) {
  pugi::xml_node line = parent.append_child("line");
  line.append_attribute("x1") = fromX;
  line.append_attribute("y1") = fromY;
  line.append_attribute("x2") = toX;
  line.append_attribute("y2") = toY;
  line.append_attribute("stroke") = "black";
  return line;
}

void AddMarker(pugi::xml_node svg) {
  pugi::xml_node marker = svg.append_child("defs").append_child("marker");
  marker.append_attribute("id") = "tip";
  marker.append_attribute("markerWidth") = 10;
  marker.append_attribute("markerHeight") = 8;
  marker.append_attribute("refX") = 9;
  marker.append_attribute("refY") = 4;
  marker.append_attribute("orient") = "auto";
  marker.append_child("path").append_attribute("d") = "M0,0 L10,4 L0,8 z";
}

void AddRung(pugi::xml_node svg, const SLadder& ladder, const SRung& rung, int y) {
  SetText(svg, kLeft - 14, y + 4, "end", fmt::format("{:.6f} s", Seconds(ladder, rung)));
  pugi::xml_node line = rung.toLibrary ? AddLine(svg, kLeft, y, kRight, y) : AddLine(svg, kRight, y, kLeft, y);
  line.append_attribute("marker-end") = "url(#tip)";
  SetText(svg, (kLeft + kRight) / 2, y - 5, "middle", rung.name);
  SetText(svg, kRight + 12, y + 4, "start", rung.details);
}

int HeightOf(const SLadder& ladder) {
  return kHead + kStep * static_cast<int>(ladder.rungs.size()) + kFoot;
}

void AddLadder(pugi::xml_node svg, const SLadder& ladder, int top) {
  const int bottom = top + HeightOf(ladder) - kFoot + 10;
  SetText(svg, 20, top + 24, "start", Title(ladder.call));
  SetText(svg, kLeft, top + 52, "middle", "exchange");
  SetText(svg, kRight, top + 52, "middle", "library");
  AddLine(svg, kLeft, top + 60, kLeft, bottom);
  AddLine(svg, kRight, top + 60, kRight, bottom);
  int y = top + kHead;
  for (const SRung& rung : ladder.rungs) {
    AddRung(svg, ladder, rung, y);
    y += kStep;
  }
  SetText(svg, 20, bottom + 24, "start", Ending(ladder.call));
}

}  // namespace

std::string LadderText(const SLadder& ladder) {
  std::string text = Title(ladder.call) + "\n\n" + fmt::format("{:>14}  {:<10}{:>21}\n", "", "exchange", "library");
  for (const SRung& rung : ladder.rungs) {
    std::string line = fmt::format("{:>12.6f} s  {}", Seconds(ladder, rung), RungText(rung));
    line.erase(line.find_last_not_of(' ') + 1);
    text += line + "\n";
  }
  return text + "\n" + Ending(ladder.call) + "\n";
}

std::string RungText(const SRung& rung) {
  return Arrow(rung) + "  " + rung.details;
}

std::string LaddersSvg(const std::vector<SLadder>& ladders) {
  int height = 0;
  for (const SLadder& ladder : ladders) {
    height += HeightOf(ladder);
  }
  pugi::xml_document document;
  pugi::xml_node svg = document.append_child("svg");
  svg.append_attribute("xmlns") = "http://www.w3.org/2000/svg";
  svg.append_attribute("width") = kWidth;
  svg.append_attribute("height") = height;
  svg.append_attribute("font-family") = "sans-serif";
  svg.append_attribute("font-size") = 13;
  pugi::xml_node paper = svg.append_child("rect");
  paper.append_attribute("width") = "100%";
  paper.append_attribute("height") = "100%";
  paper.append_attribute("fill") = "white";
  AddMarker(svg);
  int top = 0;
  for (const SLadder& ladder : ladders) {
    AddLadder(svg, ladder, top);
    top += HeightOf(ladder);
  }
  std::ostringstream out;
  document.save(out, " ");
  return out.str();
}

}  // namespace trace
