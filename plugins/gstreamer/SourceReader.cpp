#include "SourceReader.h"

#include <mutex>
#include <tuple>

#include "SourceThreads.h"
#include "SourceWorker.h"

bool SourceSettings::operator==(const SourceSettings& other) const {
  const auto all = [](const SourceSettings& settings) {
    return std::tie(settings.bufferSize, settings.userAgent, settings.proxy, settings.cookie,
                    settings.authorities, settings.certificate, settings.key, settings.speed,
                    settings.featureFlag, settings.reopen);
  };
  return all(*this) == all(other);
}

SourceReader::SourceReader(const std::string& name, const SourceSettings& settings,
                           OutageObserver outages)
    : name_(name), worker_(std::make_shared<Worker>(name, settings, std::move(outages))) {
  if (!SourceThreads::instance().run([worker = worker_] { worker->run(); })) worker_->giveUp();
}

SourceReader::~SourceReader() { worker_->quit(); }

SourceFacts SourceReader::waitForFacts(int milliseconds) {
  return worker_->waitForFacts(milliseconds);
}

SourceFacts SourceReader::facts() const { return worker_->facts(); }

SourceReader::Outcome SourceReader::read(long long offset, unsigned int least, unsigned int most,
                                         Piece* piece) {
  return worker_->read({offset, least, most}, piece);
}

void SourceReader::release() { worker_->release(); }

bool SourceReader::isReleased() const { return worker_->isReleased(); }

void SourceReader::interrupt() { worker_->setInterrupted(true); }

void SourceReader::resume() { worker_->setInterrupted(false); }

SourceLevels SourceReader::levels() { return worker_->levels(); }

void SourceReader::observe(Observer observer) { worker_->observe(std::move(observer)); }

SourceFailure SourceReader::failure() const { return worker_->failure(); }

std::string SourceReader::explanation() const { return worker_->explanation(); }

int SourceReader::httpStatus() const { return worker_->httpStatus(); }
