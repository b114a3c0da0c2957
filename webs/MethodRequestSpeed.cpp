#include "util/Log.h"
#include "webs/MethodRequest.h"
#include "webs/MethodRequestCallbacks.h"
#include "webs/WallClock.h"

namespace webs {

namespace {
constexpr int kWindowMicroseconds = 1000000;
}  // namespace

void MethodRequest::setSpeed(long long bytesPerSecond) {
  maxSpeed = bytesPerSecond;
  limiter.setMaxSpeed(bytesPerSecond);
}

void MethodRequest::snapshotSpeed() {
  double speed = 0;
  curl_easy_getinfo(curl, CURLINFO_SPEED_DOWNLOAD, &speed);
  curlSpeed = static_cast<long long>(speed);
}

void MethodRequest::showSpeed(int size) {
  const struct timeval now = wallClock();
  if (lastSampleTime.tv_sec == 0 && lastSampleTime.tv_usec == 0) {
    // The first chunk only opens the window.
    lastSampleTime = now;
    return;
  }
  const int elapsed =
      microsecondsBetween(wallClockMicroseconds(lastSampleTime), wallClockMicroseconds(now));
  if (elapsed < kWindowMicroseconds) {
    windowBytes += size;
    return;
  }
  const long long rate = windowBytes * 1000000 / elapsed;
  snapshotSpeed();
  FLUVIA_LOG(0, "handle:%p, download aver_speed is %lld Bytes/s, im_speed is %lld Bytes/s", curl,
             curlSpeed.get(), rate);
  showSpeedValue = speedAverage.push(rate);
  lastSampleTime = now;
  windowBytes = size;
}

long long MethodRequest::getSpeed() {
  long long average = limiter.GetAvgSpeed();
  if (average == 0) {
    limiter.CalAvgSpeed();
    average = limiter.GetAvgSpeed();
  }
  const long long shown = showSpeedValue;
  if (average != 0 && shown == 0) {
    FLUVIA_LOG(0, "handle:%p, show cal_avg_speed :%lld", curl, average);
    return average;
  }
  if (shown != 0) {
    FLUVIA_LOG(0, "handle:%p, show dash_speed :%lld  cal_avg_speed :%lld", curl, shown, average);
    return shown;
  }
  const long long libcurls = curlSpeed;
  FLUVIA_LOG(0, "handle:%p, show avg_speed :%lld", curl, libcurls);
  return libcurls;
}

}  // namespace webs
