#include "tools/vxr/extension/show_command.h"

#include <cstdio>
#include <nlohmann/json.hpp>

#include "platform/text/code_page.h"
#include "tools/vxr/base/output.h"
#include "tools/vxr/base/program.h"
#include "tools/vxr/extension/extension_file.h"
#include "tools/vxr/extension/extension_text.h"

int ShowCommand(const ShowOptions &options) {
  if (!machine::KnownCodePage(options.codePage)) {
    PrintError("code page " + std::to_string(options.codePage) + " is not known; use one such as 1252 or 932");
    return kExitUsage;
  }
  const bool list = options.json && options.files.size() > 1;
  bool allShown = true;
  std::size_t shown = 0;
  if (list) std::fputs("[", stdout);
  for (const std::string &file : options.files) {
    VXR_EXTIMAGE image;
    std::string problem;
    const bool good = ReadExtensionFile(file, &image, &problem);
    if (!good) {
      PrintError(file + " " + problem);
      allShown = false;
      if (!list) continue;
      TakeErrors();
    }
    if (options.json) {
      // Each document goes out as it is made: a thousand of them would fill the memory.
      if (list) std::fputs(shown == 0 ? "\n" : ",\n", stdout);
      const std::string text =
          DocumentText(good ? ExtensionDocument(file, image, options.codePage)
                            : nlohmann::ordered_json{{"file", file}, {"error", file + " " + problem}});
      std::fwrite(text.data(), 1, text.size(), stdout);
    } else {
      if (shown != 0) PrintLine("");
      PrintExtension(file, image, options.codePage);
    }
    ++shown;
  }
  if (options.json && (list || shown != 0)) std::fputs(list ? "\n]\n" : "\n", stdout);
  return allShown ? 0 : 1;
}
