// Tables, trees and property lists.
#include "render.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>

#include "text.h"

namespace zn::ctl {
namespace {

constexpr size_t kGap = 2;
constexpr size_t kLeastColumn = 8;

// Narrows the widest columns that may shrink until the line fits.
void FitColumns(const std::vector<Column>& columns, size_t width, std::vector<size_t>* widths) {
  const auto total = [&] {
    size_t sum = 0;
    for (const size_t one : *widths) sum += one + kGap;
    return sum - kGap;
  };
  while (total() > width) {
    size_t widest = columns.size();
    for (size_t i = 0; i < columns.size(); ++i) {
      const bool canShrink = columns[i].mayShrink && (*widths)[i] > kLeastColumn;
      if (canShrink && (widest == columns.size() || (*widths)[i] > (*widths)[widest])) widest = i;
    }
    if (widest == columns.size()) return;
    --(*widths)[widest];
  }
}

std::string Cell(const Terminal& terminal, const Column& column, Style style,
                 const std::string& text, size_t width, bool last) {
  const std::string cut = CutToWidth(text, width);
  const std::string fill(width - std::min(width, DisplayWidth(cut)), ' ');
  const std::string styled = Styled(terminal, style, cut);
  if (column.right) return fill + styled;
  return last ? styled : styled + fill;
}

std::string Row(const Terminal& terminal, const std::vector<Column>& columns,
                const std::vector<size_t>& widths, const std::vector<std::string>& cells,
                const Style* style) {
  std::string line;
  for (size_t i = 0; i < columns.size(); ++i) {
    const bool last = i + 1 == columns.size();
    line += Cell(terminal, columns[i], style != nullptr ? *style : columns[i].style, cells[i],
                 widths[i], last);
    if (!last) line.append(kGap, ' ');
  }
  while (!line.empty() && line.back() == ' ') line.pop_back();
  return line + "\n";
}

struct TreeMarks {
  const char* branch;
  const char* last;
  const char* pass;
  const char* blank;
};
constexpr TreeMarks kDrawn = {"├─ ", "└─ ", "│  ", "   "};
constexpr TreeMarks kAscii = {"|- ", "`- ", "|  ", "   "};

class TreeWriter {
 public:
  TreeWriter(const Terminal& terminal, ObjectSource& source, const Forest& forest,
             const TreeOptions& options)
      : terminal_(terminal),
        source_(source),
        forest_(forest),
        options_(options),
        marks_(terminal.unicode ? kDrawn : kAscii) {}

  std::string Write() {
    for (const Id& root : forest_.roots) Node(root, "", "", 1);
    return std::move(out_);
  }

 private:
  void Node(const Id& id, const std::string& head, const std::string& below, size_t level) {
    const auto children = forest_.children.find(id);
    const size_t count = children == forest_.children.end() ? 0 : children->second.size();
    const bool cut = count > 0 && level >= options_.depth;
    Line(id, head, cut ? fmt::format("({} below)", count) : Members(id, count));
    if (cut) return;
    for (size_t i = 0; i < count; ++i) {
      const bool last = i + 1 == count;
      Node(children->second[i], below + (last ? marks_.last : marks_.branch),
           below + (last ? marks_.blank : marks_.pass), level + 1);
    }
  }

  // Members of a group that stand elsewhere in the tree.
  std::string Members(const Id& id, size_t shown) {
    const ObjectInfo* info = source_.Info(id);
    if (info == nullptr || !info->isGroup) return {};
    const size_t members = source_.Children(id).size();
    if (members <= shown) return {};
    return fmt::format("({} member{})", members, members == 1 ? "" : "s");
  }

  void Line(const Id& id, const std::string& head, const std::string& note) {
    const ObjectInfo* info = source_.Info(id);
    const std::string type = info == nullptr ? "" : Printable(info->type);
    const std::string idText =
        options_.idLength >= 36 ? IdText(id) : ShortId(id, options_.idLength);
    std::string name = info == nullptr ? "?" : Printable(TitleOf(*info));
    std::string tail = "  " + type + "  " + idText + (note.empty() ? "" : "  " + note);
    size_t width = SIZE_MAX;
    if (terminal_.width > 0) {
      const size_t taken = DisplayWidth(head) + DisplayWidth(tail);
      width = std::max<size_t>(terminal_.width - std::min(terminal_.width, taken), 8);
    }
    name = CutToWidth(name, width);
    out_ += head + Styled(terminal_, Style::kName, name) + "  " +
            Styled(terminal_, Style::kType, type) + "  " + Styled(terminal_, Style::kDim, idText);
    if (!note.empty()) out_ += "  " + Styled(terminal_, Style::kDim, note);
    out_ += "\n";
  }

  const Terminal& terminal_;
  ObjectSource& source_;
  const Forest& forest_;
  const TreeOptions& options_;
  const TreeMarks& marks_;
  std::string out_;
};

// Nested sets and long lists are easier to read one item to a line.
std::vector<std::string> ValueLines(const Value& value, size_t width) {
  std::vector<std::string> items;
  if (const auto* set = std::get_if<PropertyList>(&value.data); set != nullptr && !set->empty()) {
    for (const Property& property : *set) {
      items.push_back(property.name + " = " + FormatValue(property.value));
    }
  }
  const std::string oneLine = Printable(FormatValue(value));
  const auto* list = std::get_if<Value::List>(&value.data);
  const bool longList = list != nullptr && width > 0 && DisplayWidth(oneLine) > width;
  if (longList) {
    for (const Value& element : *list) items.push_back(FormatValue(element));
  }
  if (items.empty()) items.push_back(FormatValue(value));
  std::vector<std::string> lines;
  for (const std::string& item : items) {
    const std::string text = Printable(item);
    if (width == 0) {
      lines.push_back(text);
      continue;
    }
    for (std::string& line : Wrap(text, width)) lines.push_back(std::move(line));
  }
  return lines;
}

std::string ShownType(const Property& property) {
  const std::string flags = FlagNames(property.flags);
  return TypeName(property.value.type) + (flags.empty() ? "" : " [" + flags + "]");
}

}  // namespace

std::string TitleOf(const ObjectInfo& info) {
  return info.name.empty() ? "(" + info.type + ")" : info.name;
}

std::string FlagNames(u32 propertyFlags) {
  struct FlagRow {
    u32 flag;
    const char* name;
  };
  constexpr FlagRow kFlags[] = {{ZN_PROPERTY_HIDDEN, "hidden"},
                                {ZN_PROPERTY_NO_DISPLAY, "no display"},
                                {ZN_PROPERTY_REMOTE_ONLY, "remote only"},
                                {ZN_PROPERTY_INDEXED, "indexed"}};
  std::string out;
  for (const FlagRow& row : kFlags) {
    if ((propertyFlags & row.flag) == 0) continue;
    out += (out.empty() ? "" : ", ") + std::string(row.name);
  }
  return out;
}

std::string RenderTable(const Terminal& terminal, const std::vector<Column>& columns,
                        const std::vector<std::vector<std::string>>& rows,
                        const std::string& whenEmpty) {
  if (rows.empty()) return whenEmpty + "\n";
  std::vector<std::string> titles;
  std::vector<size_t> widths;
  for (const Column& column : columns) {
    titles.push_back(column.title);
    widths.push_back(DisplayWidth(column.title));
  }
  std::vector<std::vector<std::string>> printable = rows;
  for (std::vector<std::string>& row : printable) {
    for (size_t i = 0; i < row.size(); ++i) {
      row[i] = Printable(row[i]);
      widths[i] = std::max(widths[i], DisplayWidth(row[i]));
    }
  }
  if (terminal.width > 0) FitColumns(columns, terminal.width, &widths);
  const Style head = Style::kBold;
  std::string out = Row(terminal, columns, widths, titles, &head);
  for (const std::vector<std::string>& row : printable) {
    out += Row(terminal, columns, widths, row, nullptr);
  }
  return out;
}

std::string RenderTree(const Terminal& terminal, ObjectSource& source, const Forest& forest,
                       const TreeOptions& options) {
  return TreeWriter(terminal, source, forest, options).Write();
}

std::string RenderProperties(const Terminal& terminal, const PropertyList& list,
                             const std::string& indent, bool withHidden) {
  constexpr u32 kNotShown = ZN_PROPERTY_HIDDEN | ZN_PROPERTY_NO_DISPLAY;
  constexpr size_t kLeastValue = 20;
  PropertyList shown;
  std::copy_if(list.begin(), list.end(), std::back_inserter(shown), [&](const Property& property) {
    return withHidden || (property.flags & kNotShown) == 0;
  });
  size_t nameWidth = 0;
  size_t typeWidth = 0;
  for (const Property& property : shown) {
    nameWidth = std::max(nameWidth, DisplayWidth(Printable(property.name)));
    typeWidth = std::max(typeWidth, DisplayWidth(ShownType(property)));
  }
  size_t left = indent.size() + nameWidth + typeWidth + 2 * kGap;
  const bool below = terminal.width > 0 && left + kLeastValue > terminal.width;
  if (below) left = indent.size() + 4;
  const size_t room = terminal.width > left ? terminal.width - left : 0;
  const size_t valueWidth = terminal.width == 0 ? 0 : std::max(room, kLeastValue);
  std::string out;
  for (const Property& property : shown) {
    const std::string name = PadToWidth(Printable(property.name), nameWidth);
    const std::string type = PadToWidth(ShownType(property), below ? 0 : typeWidth);
    out += indent + Styled(terminal, Style::kName, name) + "  " +
           Styled(terminal, Style::kType, below ? ShownType(property) : type);
    const std::vector<std::string> lines = ValueLines(property.value, valueWidth);
    out += below ? "\n" + std::string(left, ' ') : std::string(kGap, ' ');
    out += lines.front() + "\n";
    for (size_t i = 1; i < lines.size(); ++i) out += std::string(left, ' ') + lines[i] + "\n";
  }
  return out;
}

std::string RenderField(const Terminal& terminal, const std::string& label,
                        const std::string& text) {
  constexpr size_t kLabelWidth = 12;
  const std::string head = PadToWidth(label, kLabelWidth);
  std::string out;
  const size_t width = terminal.width > kLabelWidth + 20 ? terminal.width - kLabelWidth : 0;
  const std::vector<std::string> lines =
      width == 0 ? std::vector<std::string>{text} : Wrap(text, width);
  if (text.empty()) return Styled(terminal, Style::kBold, label) + "\n";
  for (size_t i = 0; i < lines.size(); ++i) {
    out += i == 0 ? Styled(terminal, Style::kBold, head) : std::string(kLabelWidth, ' ');
    out += lines[i] + "\n";
  }
  return out;
}

}  // namespace zn::ctl
