#include "Runner.h"

#include <fmt/format.h>

#include <memory>

#include "NetworkBuilder.h"
#include "NodeFault.h"

namespace FD {
inline namespace zelk {

namespace {

std::string placeOf(const std::string& source, const std::optional<FaultOrigin>& origin) {
  if (!origin) return source;
  const std::string frame =
      origin->count < 0 ? "outside the frames" : fmt::format("frame {}", origin->count);
  return fmt::format("{}: node '{}' (type {}), {}", source, origin->node, origin->type, frame);
}

// Runs action and returns 0; reports what it throws and returns 1.
template <class Action>
int guarded(const std::string& source, std::ostream& err, Action action) {
  try {
    action();
    return 0;
  } catch (BaseException* e) {
    const std::unique_ptr<BaseException> owner(e);
    err << placeOf(source, e->getOrigin()) << ": " << describe(*e) << "\n";
  } catch (const DocumentError& e) {
    err << e.what() << "\n";
  } catch (const std::exception& e) {
    err << placeOf(source, takeCurrentFault()) << ": " << describe(e) << "\n";
  } catch (...) {
    err << placeOf(source, takeCurrentFault()) << ": unknown exception\n";
  }
  return 1;
}

void pullOutputs(Network& network, std::ostream& out) {
  for (int i = 0; i < network.getOutputCount(); ++i) network.request(i, ParameterSet());
  network.initialize();
  for (int i = 0; i < network.getOutputCount(); ++i) out << network.getOutput(i, 0) << "\n";
  out.flush();
}

}  // namespace

int runNetwork(const NetworkDocument& document, const std::vector<std::string>& arguments,
               std::ostream& out, std::ostream& err, const Iterator::FrameHook& onFrame) {
  bool stopped = false;
  Iterator::FrameHook hook;
  if (onFrame) {
    hook = [&](int frame) {
      stopped = !onFrame(frame) || stopped;
      return !stopped;
    };
  }
  RCPtr<Network> network;
  const int status = guarded(document.source, err, [&] {
    network = buildNetwork(document, "MAIN", argumentParameters(arguments), hook);
    pullOutputs(*network, out);
    if (stopped) network->stop();
  });
  if (network.isNil()) return status;
  // Also after an error: nodes that have files open still get to close them well.
  const int endStatus = guarded(document.source, err, [&] { network->cleanupNotify(); });
  return status | endStatus;
}

int runNetworkFile(const std::filesystem::path& path, const std::vector<std::string>& arguments,
                   std::ostream& out, std::ostream& err, const Iterator::FrameHook& onFrame) {
  int status = 1;
  const int readStatus = guarded(path.string(), err, [&] {
    status = runNetwork(NetworkDocument::read(path), arguments, out, err, onFrame);
  });
  return status | readStatus;
}

}  // namespace zelk
}  // namespace FD
