// worker_port.cpp - worker threads hand their results to the main loop
// through a message port.
//
// Three workers compute, each on its own thread, the sums of squares 1..n
// for five jobs, and post each result to one port. The main loop sleeps
// until a port has a message, processes one message at a time with
// PMsgPort::ProcessNextMessages, and its collector, a listener of the port,
// receives every result on the main thread. At the end it prints what each
// worker delivered, in the order it was delivered.
//
//   qvbase_worker_port
#include <qvbase/qvbase.h>

#include <cstdio>
#include <thread>
#include <vector>

constexpr int kWorkers = 3;
constexpr int kJobs = 5;

// A result: which worker, which job, and the value.
class PResult : public PMessageData {
  DC_DECLARE_CLASS(PResult)
public:
  PResult() = default;
  PResult(int worker, int job, LONG value) : worker(worker), job(job), value(value) {}
  int worker = 0;
  int job = 0;
  LONG value = 0;
};

DC_DEFINE_CLASS(PResult, PMessageData, PAutomaticUID("Result"))

namespace {

// Runs on the main thread only: the port relays there.
class PCollector : public PMsgListener {
public:
  PCollector() : PMsgListener("collector", &PResult::dcobj_class), perWorker(kWorkers) {}
  bool ExecuteMsg(const PMessage& message) override {
    PResult* result = message.DataAs<PResult>();
    perWorker[result->worker].push_back(Delivered{result->job, result->value});
    ++received;
    return true;
  }
  struct Delivered {
    int job;
    LONG value;
  };
  std::vector<std::vector<Delivered>> perWorker;
  int received = 0;
};

LONG SumOfSquares(int n) {
  LONG sum = 0;
  for (int i = 1; i <= n; ++i)
    sum += i * i;
  return sum;
}

} // namespace

int main() {
  PMsgPort results("results", nullptr);
  PCollector collector;
  results.Register(&collector);

  std::vector<std::thread> workers;
  for (int w = 0; w < kWorkers; ++w)
    workers.emplace_back([w, &results] {
      for (int job = 1; job <= kJobs; ++job) {
        int n = 10 * (w + 1) + job;
        // Any thread may post to a port: the payload is queued under the
        // port's lock and delivered on the thread that processes the port.
        // Post hands this thread's reference over under that lock too.
        PMessage result(new PResult(w, job, SumOfSquares(n)));
        results.Post(result);
      }
    });

  // The main loop: sleep until something waits, then one message at a time.
  while (collector.received < kWorkers * kJobs) {
    if (!PMsgPort::HaveWaitingMessages())
      PMsgPort::WaitForWaitingMessages(INFINITE);
    PMsgPort::ProcessNextMessages();
  }
  for (std::thread& worker : workers)
    worker.join();

  for (int w = 0; w < kWorkers; ++w) {
    std::printf("worker %d:", w + 1);
    for (const PCollector::Delivered& result : collector.perWorker[w])
      std::printf(" job %d = %ld", result.job, static_cast<long>(result.value));
    std::printf("\n");
  }
  std::printf("%d results on the main thread, %s waiting\n", collector.received,
              PMsgPort::HaveWaitingMessages() ? "some still" : "none");
  return 0;
}
