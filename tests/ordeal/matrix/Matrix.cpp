// Runs every fault with every trace in every column: which clients deliver the right bytes.
//
// Each cell is a separate process with a limit of 70 s and a server of its own. The first column is
// this library. Its cells must be as the list of faults says, and none may have a wrong byte. No
// other column may be right where it is not, unless the list gives the reason. The column "through
// an adapter" has no wrong byte either, and is right wherever this library or the column FFmpeg is.
// The table is Markdown. Returns 0 if all this holds.
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <thread>

#include "tests/ordeal/matrix/Faults.h"
#include "tests/support/Behaviours.h"
#include "tests/support/CommandLine.h"
#include "tests/support/HttpProbes.h"

namespace {

using matrix::Fault;
using matrix::Trace;

constexpr int kLimitSeconds = 70;
const char* const kAdapter = "through an adapter";
const char* const kFFmpeg = "FFmpeg";

struct Column {
  std::string name;
  std::string program;
};

struct Cell {
  const Fault* fault = nullptr;
  Trace trace = matrix::kSequential;
  const Column* column = nullptr;
  std::string result;  // "right 0.1", "failed 0.2 how", "wrong 0.3 where"
  bool right() const { return result.compare(0, 5, "right") == 0; }
  bool wrong() const { return result.compare(0, 5, "wrong") == 0; }
};

const support::TestCertificate& certificate() {
  static const support::TestCertificate made("somebody.else", true);
  return made;
}

// Starts a column's program with its output into the given end of a pipe.
pid_t start(const Column& column, const std::string& url, const Fault& fault, Trace trace,
            int output) {
  const std::string size = std::to_string(fault.size);
  const pid_t child = fork();
  if (child < 0) abort();
  if (child > 0) return child;
  dup2(output, STDOUT_FILENO);
  if (fault.flagged) setenv("FLUVIA_FEATUREFLAG", "1", 1);
  execl(column.program.c_str(), column.program.c_str(), url.c_str(), size.c_str(),
        matrix::nameOf(trace), static_cast<char*>(nullptr));
  _exit(127);
}

// Returns the program's output until its end; kills it after its time limit.
std::string outputUntilEnd(pid_t child, int output) {
  std::string text;
  const auto until = std::chrono::steady_clock::now() + std::chrono::seconds(kLimitSeconds);
  for (;;) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
        until - std::chrono::steady_clock::now());
    struct pollfd watched = {output, POLLIN, 0};
    if (left.count() <= 0 || poll(&watched, 1, static_cast<int>(left.count())) == 0) {
      kill(child, SIGKILL);
      return "failed " + std::to_string(kLimitSeconds) + ".0 no end";
    }
    char piece[512];
    const ssize_t got = read(output, piece, sizeof piece);
    if (got <= 0) return text;
    text.append(piece, static_cast<size_t>(got));
  }
}

std::string lastLine(std::string text) {
  while (!text.empty() && (text.back() == '\n' || text.back() == ' ')) text.pop_back();
  const size_t line = text.rfind('\n');
  return line == std::string::npos ? text : text.substr(line + 1);
}

// Runs the program. Returns the last line of its output, or that it was killed.
std::string outputOf(const Column& column, const std::string& url, const Fault& fault,
                     Trace trace) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) abort();
  const pid_t child = start(column, url, fault, trace, ends[1]);
  close(ends[1]);
  const std::string text = outputUntilEnd(child, ends[0]);
  close(ends[0]);
  int status = 0;
  waitpid(child, &status, 0);
  if (text.empty()) return "failed 0.0 process ended with status " + std::to_string(status);
  return lastLine(text);
}

void run(Cell* cell) {
  const Fault& fault = *cell->fault;
  std::unique_ptr<support::FaultServer> server;
  if (fault.kind == Fault::kTls) {
    server =
        std::make_unique<support::FaultServer>(certificate().certificate(), certificate().key());
  } else {
    server = std::make_unique<support::FaultServer>();
  }
  server->on("/fault", fault.behaviour());
  server->on("/behind", support::serveRanges(fault.size));
  if (fault.kind == Fault::kOneAtATime) server->limitConnections("/fault", 1);
  std::string url = server->url("/fault");
  std::unique_ptr<support::FullListener> full;
  if (fault.kind == Fault::kRefused) {
    url = "http://127.0.0.1:" + std::to_string(support::closedPort()) + "/fault";
  } else if (fault.kind == Fault::kFull) {
    full = std::make_unique<support::FullListener>();
    url = "http://127.0.0.1:" + std::to_string(full->port()) + "/fault";
  }
  cell->result = outputOf(*cell->column, url, fault, cell->trace);
}

void runAll(std::vector<Cell>* cells, int jobs) {
  std::atomic<size_t> next{0};
  std::vector<std::thread> workers;
  for (int i = 0; i < jobs; ++i) {
    workers.emplace_back([&] {
      for (size_t at = next++; at < cells->size(); at = next++) run(&(*cells)[at]);
    });
  }
  for (std::thread& worker : workers) worker.join();
}

// True if the text begins with one of those between the '|'.
bool isOneOf(const std::string& said, const std::string& texts) {
  size_t at = 0;
  while (at <= texts.size()) {
    const size_t end = std::min(texts.find('|', at), texts.size());
    if (end > at && said.compare(0, end - at, texts, at, end - at) == 0) return true;
    at = end + 1;
  }
  return false;
}

// An adapter reconnects where the library has given up: no reason excuses a failure.
int judgeAdapter(const std::vector<const Cell*>& cells, const std::string& where) {
  const auto adapter = std::find_if(
      cells.begin(), cells.end(), [](const Cell* cell) { return cell->column->name == kAdapter; });
  if (adapter == cells.end() || (*adapter)->right()) return 0;
  const bool due = std::any_of(cells.begin(), cells.end(), [&cells](const Cell* cell) {
    return cell->right() && (cell == cells.front() || cell->column->name == kFFmpeg);
  });
  if (!due && !(*adapter)->wrong()) return 0;
  printf("%s%s: %s\n", where.c_str(), kAdapter, (*adapter)->result.c_str());
  return 1;
}

// Judges the cells of one fault and trace, ours first. Returns how many are wrong.
int judge(const std::vector<const Cell*>& cells) {
  const Cell& ours = *cells.front();
  const Fault& fault = *ours.fault;
  const std::string& expected = fault.expected[ours.trace];
  const std::string where = fault.words + ", " + matrix::nameOf(ours.trace) + ": ";
  int bad = 0;
  const size_t how = ours.result.find(' ', 7);
  const std::string said = how == std::string::npos ? "" : ours.result.substr(how + 1);
  const bool either = expected.compare(0, 1, "~") == 0;
  const bool mayBeRight = expected.empty() || either;
  const bool asTold = isOneOf(said, expected.substr(either));
  if (ours.right() ? !mayBeRight : !asTold) {
    printf("%s%s, expected: %s\n", where.c_str(), ours.result.c_str(),
           expected.empty() ? "right" : expected.c_str());
    ++bad;
  }
  if (ours.wrong()) ++bad;
  bad += judgeAdapter(cells, where);
  for (const Cell* cell : cells) {
    if (cell == &ours || !cell->right() || ours.right() || !fault.reason.empty()) continue;
    printf("%s%s is right and we are not\n", where.c_str(), cell->column->name.c_str());
    ++bad;
  }
  return bad;
}

std::string shown(const Cell& cell) {
  std::string text = cell.result;
  if (cell.right()) return text.substr(6) + " s";
  const size_t seconds = text.find(' ');
  const size_t how = text.find(' ', seconds + 1);
  return (cell.wrong() ? "**wrong** " : "") +
         (how == std::string::npos ? "failed" : text.substr(how + 1)) + ", " +
         text.substr(seconds + 1, how - seconds - 1) + " s";
}

void write(const std::string& path, const std::vector<Column>& columns,
           const std::vector<Cell>& cells) {
  FILE* out = fopen(path.c_str(), "w");
  if (out == nullptr) abort();
  fprintf(out, "| Fault | Trace |");
  for (const Column& column : columns) fprintf(out, " %s |", column.name.c_str());
  fprintf(out, " Why |\n|---|---|");
  for (size_t i = 0; i < columns.size(); ++i) fprintf(out, "---|");
  fprintf(out, "---|\n");
  for (size_t i = 0; i < cells.size(); i += columns.size()) {
    const Cell& first = cells[i];
    fprintf(out, "| %s | %s |", first.trace == 0 ? first.fault->words.c_str() : "",
            matrix::nameOf(first.trace));
    for (size_t c = 0; c < columns.size(); ++c) fprintf(out, " %s |", shown(cells[i + c]).c_str());
    fprintf(out, " %s |\n", first.right() ? "" : first.fault->reason.c_str());
  }
  if (fclose(out) != 0) abort();
}

struct Options {
  std::vector<Column> columns;
  std::string table;
  std::string only;
  int jobs = 12;
};

Options optionsOf(int count, char** words) {
  Options options;
  std::vector<std::string> columns;
  support::CommandLine line(
      "Every fault times every trace times every column: who delivers the right bytes.");
  line.option("--jobs", &options.jobs, "Cells at a time").withDefault();
  line.option("--table", &options.table, "Where the table goes, as Markdown");
  line.option("--only", &options.only, "Only the faults with this in their words");
  line.option("NAME=PROGRAM", &columns, "The columns")
      .required()
      .checkedBy([](const std::string& column) {
        return column.find('=') == std::string::npos ? column + " has no =" : std::string();
      });
  line.parseOrExit(count, words, 3);
  for (const std::string& column : columns) {
    const size_t equals = column.find('=');
    options.columns.push_back({column.substr(0, equals), column.substr(equals + 1)});
  }
  return options;
}

// A row for each trace of each fault whose words contain the text, a cell for each column.
std::vector<Cell> cellsOf(const std::vector<Fault>& faults, const Options& options) {
  std::vector<Cell> cells;
  for (const Fault& fault : faults) {
    if (fault.words.find(options.only) == std::string::npos) continue;
    for (int trace = 0; trace < matrix::kTraces; ++trace) {
      for (const Column& column : options.columns) {
        Cell cell;
        cell.fault = &fault;
        cell.trace = static_cast<Trace>(trace);
        cell.column = &column;
        cells.push_back(cell);
      }
    }
  }
  return cells;
}

// Judges row by row and counts the right cells. Returns how many are wrong.
int judgeAll(const std::vector<Cell>& cells, const std::vector<Column>& columns) {
  int bad = 0;
  std::vector<int> right(columns.size());
  for (size_t i = 0; i < cells.size(); i += columns.size()) {
    std::vector<const Cell*> row;
    for (size_t c = 0; c < columns.size(); ++c) {
      row.push_back(&cells[i + c]);
      if (cells[i + c].right()) ++right[c];
    }
    bad += judge(row);
  }
  const size_t rows = cells.size() / columns.size();
  for (size_t c = 0; c < columns.size(); ++c) {
    printf("%s: %d of %zu cells right\n", columns[c].name.c_str(), right[c], rows);
  }
  return bad;
}

}  // namespace

int main(int count, char** words) {
  const Options options = optionsOf(count, words);
  // Created now, so that no cell waits for the key.
  certificate();
  const std::vector<Fault> faults = matrix::allFaults();
  std::vector<Cell> cells = cellsOf(faults, options);
  runAll(&cells, options.jobs);
  const int bad = judgeAll(cells, options.columns);
  if (!options.table.empty()) write(options.table, options.columns, cells);
  return bad == 0 ? 0 : 1;
}
