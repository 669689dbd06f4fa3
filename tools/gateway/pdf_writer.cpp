#include "pdf_writer.h"

#include <cstdio>

namespace halqvantor::gateway {
namespace {

constexpr size_t kLinesPerPage = 60;

std::string Escape(const std::string& text) {
  std::string out;
  for (char c : text) {
    if (c == '(' || c == ')' || c == '\\') out += '\\';
    if (c == '\r' || c == '\n' || c == '\t') c = ' ';
    out += c;
  }
  return out;
}

}  // namespace

std::string RenderTextPdf(const std::string& title, const std::vector<std::string>& lines) {
  std::vector<std::vector<std::string>> pages;
  std::vector<std::string> heading = {title, ""};
  std::vector<std::string> current = heading;
  for (const std::string& line : lines) {
    if (current.size() == kLinesPerPage) {
      pages.push_back(std::move(current));
      current = heading;
    }
    current.push_back(line);
  }
  pages.push_back(std::move(current));

  // Objects: 1 catalog, 2 page tree, 3 font, then a page and its content stream per page.
  std::vector<std::string> objects;
  std::string kids;
  for (size_t i = 0; i < pages.size(); ++i) kids += std::to_string(4 + 2 * i) + " 0 R ";
  objects.push_back("<< /Type /Catalog /Pages 2 0 R >>");
  objects.push_back("<< /Type /Pages /Kids [" + kids + "] /Count " + std::to_string(pages.size()) + " >>");
  objects.push_back("<< /Type /Font /Subtype /Type1 /BaseFont /Helvetica /Encoding /WinAnsiEncoding >>");
  for (size_t i = 0; i < pages.size(); ++i) {
    std::string content = "BT\n/F1 10 Tf\n12 TL\n56 790 Td\n";
    for (size_t l = 0; l < pages[i].size(); ++l) {
      content += "(" + Escape(pages[i][l]) + ") " + (l == 0 ? "Tj\n" : "'\n");
    }
    content += "ET\n";
    objects.push_back(
        "<< /Type /Page /Parent 2 0 R /MediaBox [0 0 595 842] /Resources << /Font << /F1 3 0 R >> >> "
        "/Contents " +
        std::to_string(5 + 2 * i) + " 0 R >>");
    objects.push_back("<< /Length " + std::to_string(content.size()) + " >>\nstream\n" + content + "endstream");
  }

  std::string pdf = "%PDF-1.4\n%\xE2\xE3\xCF\xD3\n";
  std::vector<size_t> offsets;
  for (size_t i = 0; i < objects.size(); ++i) {
    offsets.push_back(pdf.size());
    pdf += std::to_string(i + 1) + " 0 obj\n" + objects[i] + "\nendobj\n";
  }
  const size_t xref = pdf.size();
  pdf += "xref\n0 " + std::to_string(objects.size() + 1) + "\n0000000000 65535 f \n";
  for (size_t offset : offsets) {
    char entry[24];
    std::snprintf(entry, sizeof entry, "%010zu 00000 n \n", offset);
    pdf += entry;
  }
  pdf += "trailer\n<< /Size " + std::to_string(objects.size() + 1) + " /Root 1 0 R >>\nstartxref\n" +
         std::to_string(xref) + "\n%%EOF\n";
  return pdf;
}

}  // namespace halqvantor::gateway
