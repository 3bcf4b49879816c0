// A behaviour is where a peer starts from; every other key changes one thing of it.
#include "lab/scenario/peer_input.h"

#include <fmt/format.h>

#include <charconv>
#include <filesystem>

#include "lab/input/hex_file.h"
#include "lab/machine/machine.h"

namespace lab {
namespace {

constexpr std::int64_t kLargestWord = 0xFFFFFFFF;
constexpr std::int64_t kLargestShift = 1000;
constexpr std::int64_t kMostPieceWords = 45;

// A block as it travels, beside the scenario.
std::vector<std::uint32_t> ReadBlock(TableReader& table, const std::string& scenarioFile) {
  const std::filesystem::path named(table.RequiredText("properties").value_or(""));
  if (named.empty()) return {};
  const std::string file =
      (named.is_absolute() ? named : std::filesystem::path(scenarioFile).parent_path() / named).string();
  try {
    return ReadHexWords(file);
  } catch (const InputError& error) {
    table.Fail("properties", error.what());
    return {};
  }
}

void ReadBlockAndLies(TableReader& table, const std::string& scenarioFile, sim::PeerConfig& peer) {
  if (table.Has("properties")) peer.block = ReadBlock(table, scenarioFile);
  peer.generation = static_cast<std::uint32_t>(table.Number("generation", peer.generation, 0, kLargestWord));
  peer.vendorName = table.Text("vendorName", peer.vendorName);
  peer.deviceName = table.Text("deviceName", peer.deviceName);
  if (table.Has("total")) peer.total = static_cast<std::uint32_t>(table.Number("total", 0, 0, 0xFFFF));
  if (table.Has("pieceWords")) {
    peer.pieceWords = static_cast<unsigned>(table.Number("pieceWords", 0, 0, kMostPieceWords));
  }
  peer.offsetShift = static_cast<int>(table.Number("offsetShift", 0, -kLargestShift, kLargestShift));
  peer.lengthShift = static_cast<int>(table.Number("lengthShift", 0, -63, 63));
}

}  // namespace

std::optional<std::uint64_t> ReadUid(TableReader& table) {
  if (!table.Has("uid")) return std::nullopt;
  const std::string text = table.Text("uid", "");
  std::uint64_t uid = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), uid, 16);
  if (error == std::errc() && end == text.data() + text.size()) return uid;
  table.Fail("uid", "uid must be at most 16 hex digits without 0x, such as \"0123456789abcd01\"");
  return std::nullopt;
}

PeerHostConfig ReadPeer(TableReader& table, const std::vector<std::string>& hosts, const std::string& scenarioFile) {
  PeerHostConfig host;
  sim::PeerConfig& peer = host.peer;
  peer = sim::PeerThatIs(table.Choice("behaviour", sim::PeerBehaviours(), "good"));
  const auto name = table.RequiredText("name");
  peer.name = name.value_or("");
  if (name && (peer.name.empty() || peer.name.find_first_of(":/") != std::string::npos)) {
    table.Fail("name", fmt::format("\"{}\" is no name for a peer: it may not be empty or contain : or /", peer.name));
  }
  host.model = table.Choice("model", HostModelNames(), host.model);
  host.uid = ReadUid(table);
  if (table.Has("sameUuidAs")) host.sameUuidAs = table.Choice("sameUuidAs", hosts, "");
  ReadBlockAndLies(table, scenarioFile, peer);
  peer.lanes = static_cast<unsigned>(table.Number("lanes", peer.lanes, 1, 2));
  peer.answerAfter = table.Duration("answerAfter", peer.answerAfter);
  if (table.Has("errorCode")) {
    peer.errorCode = static_cast<std::uint32_t>(table.Number("errorCode", 0, 0, kLargestWord));
  }
  peer.changesUuidAfter = static_cast<unsigned>(table.Number("changesUuidAfter", peer.changesUuidAfter, 0, 1000));
  peer.asks = table.Flag("asks", peer.asks);
  peer.asksLinkChange = table.Flag("asksLinkChange", peer.asksLinkChange);
  peer.stormRequests = static_cast<unsigned>(table.Number("stormRequests", peer.stormRequests, 0, 1'000'000));
  peer.stormEvery = table.Duration("stormEvery", peer.stormEvery);
  peer.stormType = static_cast<std::uint32_t>(table.Number("stormType", peer.stormType, 0, kLargestWord));
  table.Finish();
  return host;
}

}  // namespace lab
