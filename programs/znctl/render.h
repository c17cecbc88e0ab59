// Tables, trees and property lists as text of a given width. Everything that comes from the bus is
// made printable here, at the last step. Pure functions over Terminal.
#pragma once

#include <string>
#include <vector>

#include "naming.h"
#include "terminal.h"
#include "values.h"

namespace zn::ctl {

struct Column {
  std::string title;
  Style style = Style::kPlain;
  bool mayShrink = false;  // gives way where the line would be too long
  bool right = false;      // numbers
};

// Columns two blanks apart under their titles. An empty table is `whenEmpty` on a line.
std::string RenderTable(const Terminal& terminal, const std::vector<Column>& columns,
                        const std::vector<std::vector<std::string>>& rows,
                        const std::string& whenEmpty);

struct TreeOptions {
  size_t depth = SIZE_MAX;  // levels shown
  size_t idLength = 8;      // 36 and more: whole ids
};
std::string RenderTree(const Terminal& terminal, ObjectSource& source, const Forest& forest,
                       const TreeOptions& options);

// name, type and value of each; values that are too long go on in lines of their own.
std::string RenderProperties(const Terminal& terminal, const PropertyList& list,
                             const std::string& indent, bool withHidden);

// "Label:   text" with the text wrapped to the width.
std::string RenderField(const Terminal& terminal, const std::string& label,
                        const std::string& text);

std::string FlagNames(u32 propertyFlags);

// Title of an object in running text: its name, or its type where it has none.
std::string TitleOf(const ObjectInfo& info);

}  // namespace zn::ctl
