// world_state.cpp: the world's state as a JSON text, in both directions.

#include "platform/host/world_state.h"

#include <cjson/cJSON.h>
#include <cstdio>

#include "foundation/file_io.h"
#include "foundation/owned.h"
#include "foundation/text.h"
#include "platform/host/json_read.h"
#include "platform/host/safe_file.h"

namespace ap::host {

namespace {

cJSON *add_object(cJSON *parent, const std::string &name) { return cJSON_AddObjectToObject(parent, name.c_str()); }
void add(cJSON *parent, const char *name, double value) { cJSON_AddNumberToObject(parent, name, value); }
void add(cJSON *parent, const char *name, const std::string &value) {
    cJSON_AddStringToObject(parent, name, value.c_str());
}

// Walks the members of an object's member: action(name, value).
template <typename Action> void each_member(const cJSON *root, const char *name, Action action) {
    const cJSON *item = nullptr;
    cJSON_ArrayForEach(item, cJSON_GetObjectItem(root, name)) {
        if (item->string != nullptr) action(std::string(item->string), item);
    }
}

RadioState read_radio(const cJSON *item) {
    RadioState radio;
    radio.setting.channel = int_member(item, "channel", 0);
    radio.setting.bandwidth = int_member(item, "bandwidth", 20);
    radio.setting.extension = int_member(item, "extension", 0);
    radio.power_dbm = int_member(item, "power_dbm", 20);
    return radio;
}

void add_radio(cJSON *item, const RadioState &radio) {
    add(item, "channel", radio.setting.channel);
    add(item, "bandwidth", radio.setting.bandwidth);
    add(item, "extension", radio.setting.extension);
    add(item, "power_dbm", radio.power_dbm);
}

PrivateElements read_private_elements(const cJSON *item) {
    PrivateElements elements;
    elements.on = flag_member(item, "on", false);
    const cJSON *port = nullptr;
    cJSON_ArrayForEach(port, cJSON_GetObjectItem(item, "ports")) {
        elements.ports.push_back({int_member(port, "port", 0), int_member(port, "type", 0),
                                  int_member(port, "max_length", 0), text_member(port, "interfaces"),
                                  text_member(port, "payload_name")});
    }
    elements.line = text_member(item, "line");
    elements.age_seconds = int_member(item, "age_seconds", elements.age_seconds);
    each_member(item, "heard", [&](const std::string &sender, const cJSON *heard) {
        elements.heard[sender] = {text_member(heard, "text"), number_member(heard, "noticed_at", 0)};
    });
    return elements;
}

void add_private_elements(cJSON *item, const PrivateElements &elements) {
    cJSON_AddBoolToObject(item, "on", elements.on ? 1 : 0);
    cJSON *ports = cJSON_AddArrayToObject(item, "ports");
    for (const PrivatePort &port : elements.ports) {
        cJSON *entry = cJSON_CreateObject();
        add(entry, "port", port.port);
        add(entry, "type", port.type);
        add(entry, "max_length", port.max_length);
        add(entry, "interfaces", port.interfaces);
        add(entry, "payload_name", port.payload_name);
        cJSON_AddItemToArray(ports, entry);
    }
    add(item, "line", elements.line);
    add(item, "age_seconds", elements.age_seconds);
    cJSON *heard = add_object(item, "heard");
    for (const auto &[sender, line] : elements.heard) {
        cJSON *entry = add_object(heard, sender);
        add(entry, "text", line.text);
        add(entry, "noticed_at", line.noticed_at);
    }
}

std::map<int, GpioLine> read_gpio_lines(const cJSON *item) {
    std::map<int, GpioLine> lines;
    const cJSON *line = nullptr;
    cJSON_ArrayForEach(line, item) {
        if (line->string != nullptr)
            lines[ap::to_int(line->string)] = {int_member(line, "value", 0), flag_member(line, "locked", false)};
    }
    return lines;
}

void add_gpio_lines(cJSON *item, const std::map<int, GpioLine> &lines) {
    for (const auto &[number, line] : lines) {
        cJSON *entry = add_object(item, std::to_string(number));
        add(entry, "value", line.value);
        cJSON_AddBoolToObject(entry, "locked", line.locked ? 1 : 0);
    }
}

std::string to_text(const WorldState &state) {
    const ap::UniqueJson root(cJSON_CreateObject());
    add(root.get(), "started_at", state.started_at);
    cJSON *radios = add_object(root.get(), "radios");
    for (const auto &[key, radio] : state.radios) add_radio(add_object(radios, key), radio);
    cJSON *scans = add_object(root.get(), "scans");
    for (const auto &[key, scan] : state.scans) {
        cJSON *item = add_object(scans, key);
        add(item, "channel", scan.channel);
        add(item, "ssid", scan.ssid);
    }
    cJSON *elements = add_object(root.get(), "private_elements");
    for (const auto &[key, value] : state.private_elements) add_private_elements(add_object(elements, key), value);
    cJSON *gpio = add_object(root.get(), "gpio_lines");
    for (const auto &[key, lines] : state.gpio_lines) add_gpio_lines(add_object(gpio, key), lines);
    cJSON *faults = add_object(root.get(), "fault_calls");
    for (const auto &[key, calls] : state.fault_calls) add(faults, std::to_string(key).c_str(), calls);
    const ap::HeapPtr<char> text(cJSON_Print(root.get()));
    return text ? std::string(text.get()) + "\n" : std::string();
}

}  // namespace

WorldState read_world_state(const std::string &path) {
    WorldState state;
    std::string text, error;
    if (!read_whole_file(path.c_str(), text, error)) return state;
    const ap::UniqueJson parsed(cJSON_Parse(text.c_str()));
    const cJSON *root = parsed.get();
    state.started_at = number_member(root, "started_at", 0);
    each_member(root, "radios",
                [&](const std::string &key, const cJSON *item) { state.radios[key] = read_radio(item); });
    each_member(root, "scans", [&](const std::string &key, const cJSON *item) {
        state.scans[key] = {int_member(item, "channel", 0), text_member(item, "ssid")};
    });
    each_member(root, "private_elements", [&](const std::string &key, const cJSON *item) {
        state.private_elements[key] = read_private_elements(item);
    });
    each_member(root, "gpio_lines",
                [&](const std::string &key, const cJSON *item) { state.gpio_lines[key] = read_gpio_lines(item); });
    each_member(root, "fault_calls", [&](const std::string &key, const cJSON *item) {
        state.fault_calls[ap::to_int(key.c_str())] = item->valueint;
    });
    return state;
}

bool write_world_state(const std::string &path, const WorldState &state) {
    const std::string text = to_text(state), temporary = path + ".new";
    if (text.empty()) return false;
    const ap::UniqueFd file = ap::open_fd(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0666);
    if (!file || !ap::write_full(file.get(), text.data(), text.size())) return false;
    return std::rename(temporary.c_str(), path.c_str()) == 0;
}

}  // namespace ap::host
