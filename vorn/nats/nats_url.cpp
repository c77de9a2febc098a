// SPDX-License-Identifier: Apache-2.0
#include "vorn/nats/nats_url.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <string_view>

namespace vorn {
namespace {

// What names of streams and subjects may hold everywhere.
bool is_name(std::string_view text) {
    return !text.empty() && text.size() <= 64 && std::all_of(text.begin(), text.end(), [](char character) {
        return std::isalnum(static_cast<unsigned char>(character)) != 0 || character == '_' ||
               character == '-';
    });
}

bool is_port(std::string_view text) {
    std::uint16_t port = 0;
    const auto [end, fault] = std::from_chars(text.data(), text.data() + text.size(), port);
    return fault == std::errc() && end == text.data() + text.size() && port != 0;
}

// A part of a URL, between separators. What stands before the URL's last '@' may be part of a password, which
// may hold any character, and is not shown.
struct Part {
    std::string_view text;
    std::string_view shown;
};

std::string quoted(const Part& part) {
    constexpr std::size_t kMost = 60;
    return "\"" + std::string(part.shown.substr(0, kMost)) + (part.shown.size() > kMost ? "...\"" : "\"");
}

// Calls use(part) for each, until one returns a sentence.
template <class Use>
std::string each_part(std::string_view whole, std::size_t from, std::size_t end, char separator, Use&& use) {
    const std::size_t last_at = whole.rfind('@');
    for (std::string fault; from <= end; fault = {}) {
        const std::size_t stop = std::min(whole.find(separator, from), end);
        Part part = {whole.substr(from, stop - from), {}};
        part.shown = part.text;
        if (last_at != std::string_view::npos && last_at >= from) {
            part.shown = last_at < stop ? whole.substr(last_at + 1, stop - last_at - 1) : "***";
        }
        if (fault = use(part); !fault.empty()) return fault;
        from = stop + 1;
    }
    return {};
}

std::string read_server(const Part& server, NatsUrl& url) {
    const std::string_view host = server.text.substr(server.text.rfind('@') + 1);  // or all
    const std::size_t colon = host.rfind(':');
    const std::string named =
        "server " + std::to_string(url.servers.size() + 1) + ", " + quoted(server) + ", ";
    if (server.text.empty()) return named + "is missing: write HOST:PORT";
    if (colon == std::string_view::npos) return named + "has no port: write HOST:PORT";
    if (colon == 0) return named + "has no host: write HOST:PORT";
    if (!is_port(host.substr(colon + 1))) return named + "has a port that is no number from 1 to 65535";
    url.servers.push_back((url.tls ? "tls://" : "nats://") + std::string(server.text));
    return {};
}

std::string read_option(const Part& option, NatsUrl& url) {
    const std::size_t equals = option.text.find('=');
    const std::string_view name = option.text.substr(0, equals);
    if (name != "prefix" && name != "replicas" && name != "state") {
        return "there is no option " + quoted(option) +
               ": there are prefix=NAME, replicas=N and state=FOLDER";
    }
    const std::string_view value = equals == std::string_view::npos ? "" : option.text.substr(equals + 1);
    if (name == "prefix") {
        if (!is_name(value))
            return "prefix is no name of up to 64 letters, digits, - and _: " + quoted(option);
        url.prefix = value;
    } else if (name == "replicas") {
        if (value.size() != 1 || value[0] < '1' || value[0] > '5') {
            return "replicas is no number from 1 to 5: " + quoted(option);
        }
        url.replicas = value[0] - '0';
    } else {
        if (value.empty()) return "state names no folder: " + quoted(option);
        url.state = value;
    }
    return {};
}

}  // namespace

NatsUrl::NatsUrl(const BusUrl& valid) { read_nats_url(valid, *this); }

std::string read_nats_url(const BusUrl& given, NatsUrl& url) {
    url.tls = given.tls;
    const std::size_t mark = std::min(given.rest.find('?'), given.rest.size());
    std::string fault =
        each_part(given.rest, 0, mark, ',', [&](const Part& server) { return read_server(server, url); });
    if (!fault.empty() || mark == given.rest.size()) return fault;
    return each_part(given.rest, mark + 1, given.rest.size(), '&',
                     [&](const Part& option) { return read_option(option, url); });
}

std::string limits_text(const Limits& limits) {
    return "VORN 2: batches=" + std::to_string(limits.batches) + " bytes=" + std::to_string(limits.bytes) +
           " batch_bytes=" + std::to_string(limits.batch_bytes);
}

std::optional<Limits> read_limits(const char* text) {
    if (text == nullptr) return std::nullopt;
    std::string_view rest = text;
    // Takes the words off, and the number that follows them.
    const auto take = [&rest](std::string_view words, std::uint32_t& number) {
        if (!rest.starts_with(words)) return false;
        rest.remove_prefix(words.size());
        const auto [end, fault] = std::from_chars(rest.data(), rest.data() + rest.size(), number);
        rest.remove_prefix(static_cast<std::size_t>(end - rest.data()));
        return fault == std::errc();
    };
    Limits limits = {};
    // Written by a receiver of this version; of a later one, more may follow.
    if (!take("VORN 2: batches=", limits.batches) || !take(" bytes=", limits.bytes) ||
        !take(" batch_bytes=", limits.batch_bytes)) {
        return std::nullopt;
    }
    return limits;
}

}  // namespace vorn
