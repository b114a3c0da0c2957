#include "tests/support/HttpProbes.h"

#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509v3.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "tests/support/Watchdog.h"

namespace support {

int CollectingRequestor::receive(void* data, int size, void* handle, int version) {
  lastVersion = version;
  lastHandle = handle;
  const int taken = onPiece ? onPiece(data, size) : size;
  std::lock_guard<std::mutex> guard(lock);
  bytes.append(static_cast<const char*>(data), static_cast<size_t>(size));
  changed.notify_all();
  return taken;
}

bool CollectingRequestor::waitForBytes(size_t count) const {
  std::unique_lock<std::mutex> guard(lock);
  return changed.wait_for(guard, patienceOf(kWaitSeconds), [&] { return bytes.size() >= count; });
}

std::string CollectingRequestor::body() const {
  std::lock_guard<std::mutex> guard(lock);
  return bytes;
}

int ScriptedReceiver::streamIn(void* data, unsigned int size, int version) {
  if (onPiece) onPiece();
  std::lock_guard<std::mutex> guard(lock);
  if (bytes.size() >= refuseAfter) return 0;
  bytes.append(static_cast<const char*>(data), size);
  seenVersions.push_back(version);
  changed.notify_all();
  return 1;
}

void ScriptedReceiver::notifyStreamException(int event) {
  if (onEvent) onEvent(event);
  std::unique_lock<std::mutex> guard(lock);
  seenEvents.push_back(event);
  changed.notify_all();
  if (event == parkOn) changed.wait(guard, [&] { return mayGoOn; });
}

std::string ScriptedReceiver::body() const {
  std::lock_guard<std::mutex> guard(lock);
  return bytes;
}

std::vector<int> ScriptedReceiver::events() const {
  std::lock_guard<std::mutex> guard(lock);
  return seenEvents;
}

std::vector<int> ScriptedReceiver::versions() const {
  std::lock_guard<std::mutex> guard(lock);
  return seenVersions;
}

bool ScriptedReceiver::waitForBytes(size_t count) const {
  std::unique_lock<std::mutex> guard(lock);
  return changed.wait_for(guard, patienceOf(kWaitSeconds), [&] { return bytes.size() >= count; });
}

bool ScriptedReceiver::waitForEvent(int event) const {
  std::unique_lock<std::mutex> guard(lock);
  return changed.wait_for(guard, patienceOf(kWaitSeconds), [&] {
    for (const int seen : seenEvents) {
      if (seen == event) return true;
    }
    return false;
  });
}

void ScriptedReceiver::unpark() {
  std::lock_guard<std::mutex> guard(lock);
  mayGoOn = true;
  changed.notify_all();
}

ProducerProbe::ProducerProbe(const std::string& url, int featureFlag) : producer(url) {
  if (featureFlag != -1) producer.setFeatureFlag(featureFlag);
  producer.initialize();
  producer.setOutput(&receiver);
}

ProducerProbe::~ProducerProbe() {
  receiver.unpark();
  producer.release();
  join();
}

std::vector<int> ProducerProbe::run(int version, long long offset, long long count) {
  const size_t before = receiver.events().size();
  producer.startStreaming(version, offset, count);
  const std::vector<int> all = receiver.events();
  return std::vector<int>(all.begin() + static_cast<std::ptrdiff_t>(before), all.end());
}

void ProducerProbe::start(int version, long long offset, long long count) {
  join();
  runner = std::thread([=] { producer.startStreaming(version, offset, count); });
}

void ProducerProbe::join() {
  if (runner.joinable()) runner.join();
}

namespace {

void addExtension(X509* certificate, int id, const std::string& value) {
  X509V3_CTX context;
  X509V3_set_ctx_nodb(&context);
  X509V3_set_ctx(&context, certificate, certificate, nullptr, nullptr, 0);
  X509_EXTENSION* extension = X509V3_EXT_conf_nid(nullptr, &context, id, value.c_str());
  if (extension == nullptr) abort();
  X509_add_ext(certificate, extension, -1);
  X509_EXTENSION_free(extension);
}

}  // namespace

TestCertificate::TestCertificate(const std::string& host, bool expired) {
  char name[] = "/tmp/fluviafs-cert-XXXXXX";
  if (mkdtemp(name) == nullptr) abort();
  folder = name;

  EVP_PKEY* pair = EVP_EC_gen("P-256");
  X509* made = X509_new();
  X509_set_version(made, 2);
  ASN1_INTEGER_set(X509_get_serialNumber(made), 1);
  constexpr long kDay = 24L * 60 * 60;
  X509_gmtime_adj(X509_getm_notBefore(made), -10 * kDay);
  X509_gmtime_adj(X509_getm_notAfter(made), expired ? -kDay : kDay);
  X509_set_pubkey(made, pair);
  X509_NAME* subject = X509_get_subject_name(made);
  X509_NAME_add_entry_by_txt(subject, "CN", MBSTRING_ASC,
                             reinterpret_cast<const unsigned char*>(host.c_str()), -1, -1, 0);
  X509_set_issuer_name(made, subject);
  const bool isAddress = host.find_first_not_of("0123456789.") == std::string::npos;
  addExtension(made, NID_subject_alt_name, (isAddress ? "IP:" : "DNS:") + host);
  addExtension(made, NID_basic_constraints, "critical,CA:TRUE");
  if (X509_sign(made, pair, EVP_sha256()) == 0) abort();

  FILE* file = fopen(certificate().c_str(), "w");
  if (file == nullptr || PEM_write_X509(file, made) != 1) abort();
  fclose(file);
  file = fopen(key().c_str(), "w");
  if (file == nullptr ||
      PEM_write_PrivateKey(file, pair, nullptr, nullptr, 0, nullptr, nullptr) != 1) {
    abort();
  }
  fclose(file);
  X509_free(made);
  EVP_PKEY_free(pair);
}

TestCertificate::~TestCertificate() {
  unlink(certificate().c_str());
  unlink(key().c_str());
  rmdir(folder.c_str());
}

}  // namespace support
