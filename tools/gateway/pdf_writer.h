#pragma once

// A small PDF of text lines (Windows-1252, Helvetica, A4, as many pages as the lines need): the print form
// of a segment through a layout.

#include <string>
#include <vector>

namespace halqvantor::gateway {

std::string RenderTextPdf(const std::string& title, const std::vector<std::string>& lines);

}  // namespace halqvantor::gateway
