#include "devcloud/SampleFiles.h"

#include "base/Encodings.h"
#include "base/Text.h"
#include "devcloud/SearchWords.h"

#include <fmt/format.h>

#include <algorithm>
#include <string_view>

namespace vorlane::devcloud {
namespace {

/// `line` as a PDF string in the font's own encoding, Latin-1.
std::string pdfString(std::string_view line) {
  std::string text = "(";
  while (!line.empty()) {
    const std::size_t length = std::max<std::size_t>(utf8SequenceLength(line), 1);
    const unsigned char first = static_cast<unsigned char>(line[0]);
    if (length == 1) {
      if (first == '(' || first == ')' || first == '\\') text += '\\';
      text += first < 0x20 || first > 0x7E ? '?' : line[0];
    } else if (length == 2 && first <= 0xC3) {
      text += fmt::format("\\{:03o}", ((first & 0x03) << 6) | (static_cast<unsigned char>(line[1]) & 0x3F));
    } else {
      text += '?';
    }
    line.remove_prefix(length);
  }
  return text + ")";
}

std::string pageContent(std::string_view page) {
  std::string content = "BT /F1 12 Tf 16 TL 56 770 Td\n";
  for (const std::string_view line : linesOf(page)) content += pdfString(line) + " Tj T*\n";
  return content + "ET";
}

}  // namespace

std::string pdfWithPages(const std::vector<std::string>& pages) {
  // Objects are numbered from 1: catalog, page tree, font, then page and content in turn.
  std::vector<std::string> objects(3);
  std::string kids;
  for (const std::string& page : pages) {
    const std::size_t number = objects.size() + 1;
    kids += fmt::format("{} 0 R ", number);
    objects.push_back(
        fmt::format("<< /Type /Page /Parent 2 0 R /MediaBox [0 0 595 842] "
                    "/Resources << /Font << /F1 3 0 R >> >> /Contents {} 0 R >>",
                    number + 1));
    const std::string content = pageContent(page);
    objects.push_back(fmt::format("<< /Length {} >>\nstream\n{}\nendstream", content.size(), content));
  }
  objects[0] = "<< /Type /Catalog /Pages 2 0 R >>";
  objects[1] = fmt::format("<< /Type /Pages /Kids [ {}] /Count {} >>", kids, pages.size());
  objects[2] = "<< /Type /Font /Subtype /Type1 /BaseFont /Helvetica /Encoding /WinAnsiEncoding >>";

  std::string file = "%PDF-1.4\n%\xE2\xE3\xCF\xD3\n";
  std::string table = fmt::format("xref\n0 {}\n0000000000 65535 f \n", objects.size() + 1);
  for (std::size_t i = 0; i < objects.size(); ++i) {
    table += fmt::format("{:010} 00000 n \n", file.size());
    file += fmt::format("{} 0 obj\n{}\nendobj\n", i + 1, objects[i]);
  }
  const std::size_t start = file.size();
  return file + table +
         fmt::format("trailer\n<< /Size {} /Root 1 0 R >>\nstartxref\n{}\n%%EOF\n", objects.size() + 1,
                     start);
}

std::string samplePNG() {
  return base64Decoded(
             "iVBORw0KGgoAAAANSUhEUgAAAAQAAAAECAIAAAAmkwkpAAAAEklEQVR42mM4AAIMDGCCgTgOAI5SGAGdPYTOAAAAAElFTk"
             "SuQmCC")
      .value();
}

}  // namespace vorlane::devcloud
