// list_channels: a small program on the installed halqvantor library. It connects to an archive gateway,
// lists the gateway's channels with their descriptions and prints the status of the request.
//
//   list_channels HOST PORT [USER [PASSWORD]]     (user and password default to the sample's easy/easy)
//
// Exit status: 0 the channels were listed, 1 the gateway or the connection failed, 2 bad usage.

#include <halqvantor/clsVantor.h>

#include <charconv>
#include <iostream>
#include <string>
#include <string_view>

namespace {

constexpr const char* kUsage =
    "usage: list_channels HOST PORT [USER [PASSWORD]]\n"
    "Lists the channels of the archive gateway at HOST:PORT (user and password default to easy/easy).\n";

// The port as a number from 1 to 65535, or 0 when `text` is not one.
int ParsePort(std::string_view text) {
  int port = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), port);
  if (error != std::errc() || end != text.data() + text.size() || port < 1 || port > 65535) return 0;
  return port;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc == 2 && (std::string_view(argv[1]) == "--help" || std::string_view(argv[1]) == "-h")) {
    std::cout << kUsage;
    return 0;
  }
  if (argc < 3 || argc > 5 || ParsePort(argv[2]) == 0) {
    std::cerr << kUsage;
    return 2;
  }

  // One object per conversation with the gateway: set its properties, then Init, then the operations.
  halqvantor::clsVantor vantor;
  vantor.strREMOTEHOST = argv[1];
  vantor.lngREMOTEPORT = ParsePort(argv[2]);
  vantor.lngREQUESTTIMEOUT = 10;
  vantor.strEASYUser = argc > 3 ? argv[3] : "easy";
  vantor.strEASYPwd = argc > 4 ? argv[4] : "easy";
  vantor.Init();

  // The Init call fetches the list; each Next hands out one channel until it returns "".
  halqvantor::Variant status;
  const halqvantor::Variant count = vantor.EASYGetChannelsInit(&status);
  const std::string failure = status.ToString();
  if (!failure.empty()) {
    std::cerr << "status: " << failure << '\n';
    return 1;
  }
  for (;;) {
    halqvantor::Variant description;
    const std::string channel = vantor.EASYGetChannelsNext(&description).ToString();
    if (channel.empty()) break;
    std::cout << channel << "  " << description.ToString() << '\n';
  }
  std::cout << "status: OK, " << count.ToLong() << " channels\n";
  return 0;
}
