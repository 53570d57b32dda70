#include "station/grammar.h"

#include <algorithm>
#include <iterator>

#include "station/text.h"

namespace station {
namespace {

constexpr std::size_t kLongestLine = 16'384;  // q7 writes none that is longer

}  // namespace

std::string_view name_of(Step step) {
    constexpr std::array<std::string_view, 14> kNames{
        "start", "buzzer", "panel", "network", "alarm", "rtc", "usb",
        "sata",  "rs485",  "info",  "summary", "end",   "pmp", "watchdog"};
    return kNames.at(static_cast<std::size_t>(step));
}

Mode Mode::of(const std::vector<std::string>& words) {
    constexpr std::array<Step, 12> kTests{Step::start, Step::info,     Step::buzzer, Step::panel,
                                          Step::rs485, Step::alarm,    Step::rtc,    Step::usb,
                                          Step::sata,  Step::watchdog, Step::pmp,    Step::network};
    const bool single = words.size() == 2 || words.size() == 3;
    if (!single) {
        const bool net = !words.empty() && words.front() == "netQ7test";
        return {net ? Kind::net : Kind::console, Step::start};
    }
    std::int64_t number = 0;
    const bool valid = (words[0] == "-o" || words[0] == "-O") && words[1].size() <= 2
                       && parse_number(words[1], 10, number) && number >= 1 && number <= 11;
    if (!valid) return {};
    return {Kind::single, kTests.at(static_cast<std::size_t>(number))};
}

Grammar::Grammar(Evidence& evidence, CommandSeen command, Mode mode)
    : evidence_(evidence), command_(std::move(command)), mode_(mode) {}

// The rows, and those that a line can match by its first byte.
struct Grammar::Table {
    explicit Table(std::vector<Row> all) : rows(std::move(all)) {
        for (std::size_t i = 0; i < rows.size(); ++i) {
            const int first = rows[i].pattern.first_byte();
            for (int byte = 0; byte < 256; ++byte) {
                if (first == -1 || first == byte)
                    by_byte[static_cast<std::size_t>(byte)].push_back(i);
            }
        }
    }

    std::vector<Row> rows;
    std::array<std::vector<std::size_t>, 256> by_byte;
};

Grammar::Row Grammar::row(Source source, Step step, const char* pattern,
                          bool (Grammar::*act)(const Row&), const char* first, const char* second,
                          const char* unit) {
    return {Pattern(pattern), source, act, step, first, second, unit};
}

// Start.
std::vector<Grammar::Row> Grammar::start_rows() {
    return {
        row(Source::printed, Step::start,
            "g_bSupFrontPanel[{d}],g_iUsbNum[{d}],g_iCordNo[{d}],g_iAlarmOutNum[{d}],"
            "g_iAlarmInNum[{d}],g_sata_port_num[{d}],g_cESataNum[{d}],g_cMiniSASNum[{d}],"
            "g_cSataNewRule[{d}]",
            &Grammar::capability),
        row(Source::printed, Step::start, "no kill avcore", &Grammar::settled),
        row(Source::printed, Step::start, "切换到超级用户失败，可能会对Q7的某些项测试有影响",
            &Grammar::word_fact, "start.root", "no"),
        row(Source::printed, Step::start, "第{d}次测试", &Grammar::repetition),
        row(Source::printed, Step::start, "打开命名管道出错", &Grammar::failure),
        row(Source::printed, Step::start, "参数非法", &Grammar::failure),
        row(Source::printed, Step::start, "请选择测试序号(1~{d})", &Grammar::failure),
        row(Source::printed, Step::start, "请输入正确的测试序号.(1~{d})", &Grammar::failure),
        row(Source::printed, Step::start, "打开hwInfo设备出错!", &Grammar::failure),
        row(Source::printed, Step::start, "初始化看门狗失败!", &Grammar::failure),
        row(Source::printed, Step::start, "sysInit 1 Fatal", &Grammar::failure),
        row(Source::printed, Step::start, "open {w} failed, errno:{d},{s}", &Grammar::failure),
        row(Source::printed, Step::start, "can not creat HB thread", &Grammar::failure),
    };
}

// Headings.
std::vector<Grammar::Row> Grammar::heading_rows() {
    return {
        row(Source::reported, Step::buzzer, "第{d}步:蜂鸣器测试", &Grammar::heading),
        row(Source::reported, Step::panel, "第{d}步:按键测试", &Grammar::heading),
        row(Source::reported, Step::network, "第{d}步:网络状态", &Grammar::heading),
        row(Source::reported, Step::alarm, "第{d}步:报警量测试，请确认已经连接好报警测试装置",
            &Grammar::heading),
        row(Source::reported, Step::rtc, "第{d}步:开始测试RTC", &Grammar::heading),
        row(Source::reported, Step::rs485, "第{d}步:485测试", &Grammar::heading),
        row(Source::reported, Step::info, "第{d}步:CPLD信息", &Grammar::heading),
        row(Source::reported, Step::start, "第{d}步:", &Grammar::heading_number_alone),
        row(Source::reported, Step::usb, "USB口测试", &Grammar::heading_behind_number),
        row(Source::reported, Step::sata, "SATA硬盘测试", &Grammar::heading_behind_number),
        row(Source::reported, Step::rs485, "请确认已经正确连接好485测试装置", &Grammar::known),
    };
}

// Anywhere.
std::vector<Grammar::Row> Grammar::anywhere_rows() {
    return {
        row(Source::printed, Step::start, "write error file = {s} ,line = {d} ", &Grammar::lost),
        row(Source::printed, Step::buzzer, "open hwInfo error!", &Grammar::failure),
        row(Source::printed, Step::start, "signal failed", &Grammar::failure),
        row(Source::printed, Step::start, "tcsetattr failed", &Grammar::failure),
        row(Source::printed, Step::panel, "receive {d}:{d} replies", &Grammar::interrupted),
        row(Source::printed, Step::alarm, "success is {d}, and error is {d}",
            &Grammar::interrupted),
        row(Source::printed, Step::rtc, "read rtc successfully {d} times : failed {d} times",
            &Grammar::interrupted),
    };
}

// Front panel.
std::vector<Grammar::Row> Grammar::panel_rows() {
    return {
        row(Source::printed, Step::panel,
            "面板输入ENTER点亮1.3.5.7 奇数通道灯再点亮2.4.6.8偶数通道灯", &Grammar::known),
        row(Source::printed, Step::panel, "面板输入UP点亮所有录象灯+所有功能灯", &Grammar::known),
        row(Source::printed, Step::panel, "面板输入DOWN关闭所有录象灯+所有功能灯", &Grammar::known),
        row(Source::printed, Step::panel, "面板输入LEFT点亮所有网络连接显示灯", &Grammar::known),
        row(Source::printed, Step::panel, "面板输入RIGHT关闭所有网络连接显示灯", &Grammar::known),
        row(Source::printed, Step::panel, "面板输入ESC退出测试", &Grammar::known),
        row(Source::printed, Step::panel, "unknow key", &Grammar::count, "unknown_keys"),
        row(Source::printed, Step::panel, "control pannel is pressed", &Grammar::count,
            "other_frames"),
        row(Source::printed, Step::panel, "main control keyboard is pressed", &Grammar::count,
            "other_frames"),
        row(Source::printed, Step::panel, "other messages is received", &Grammar::count,
            "other_frames"),
        row(Source::printed, Step::panel, "read failed", &Grammar::count, "read_failures"),
        row(Source::reported, Step::panel, "led_test_func error", &Grammar::failure),
    };
}

// Network.
std::vector<Grammar::Row> Grammar::network_rows() {
    return {
        row(Source::printed, Step::network, "现在测试电口网络", &Grammar::port_type, "copper"),
        row(Source::printed, Step::network, "现在测试光口网络", &Grammar::port_type, "fibre"),
        row(Source::printed, Step::network, "切换电口失败", &Grammar::port_refused, "copper"),
        row(Source::printed, Step::network, "切换光口失败", &Grammar::port_refused, "fibre"),
        row(Source::printed, Step::network, "creat socket error", &Grammar::no_socket),
        row(Source::reported, Step::network, "网卡个数超过支持上限,网口个数为 {d}",
            &Grammar::failure),
        row(Source::reported, Step::network, "网卡{d}:{s}", &Grammar::port_number),
        row(Source::reported, Step::network, "网络连接接通 ", &Grammar::port_link, "up"),
        row(Source::reported, Step::network, "网络连接断开 ", &Grammar::port_link, "down"),
        row(Source::reported, Step::network, "ETHTOOL_GLINK failed: ", &Grammar::port_link,
            "unknown"),
        row(Source::reported, Step::network, "全双工  {d}M", &Grammar::port_speed, "full"),
        row(Source::reported, Step::network, "半双工  {d}M", &Grammar::port_speed, "half"),
        row(Source::reported, Step::network, "全双工  net speed error", &Grammar::port_speed,
            "full"),
        row(Source::reported, Step::network, "半双工  net speed error", &Grammar::port_speed,
            "half"),
        row(Source::reported, Step::network, "ETHTOOL_GLINK failed", &Grammar::port_speed_failed),
        row(Source::reported, Step::network, "请检查网络测试环境是否为千M网络",
            &Grammar::port_hint),
        row(Source::printed, Step::network, "ioctl ZEBIO_GET_BOOT_PARMS error", &Grammar::failure),
    };
}

// Alarm.
std::vector<Grammar::Row> Grammar::alarm_rows() {
    return {
        row(Source::reported, Step::alarm,
            "报警输出个数为{d},暂时不支持该个数,请检查CPLD信息是否正确", &Grammar::failure),
        row(Source::reported, Step::alarm, "报警输入有{d}个,报警输出有{d}个",
            &Grammar::alarm_counts),
        row(Source::printed, Step::alarm, "open /dev/iop failed", &Grammar::failure),
        row(Source::reported, Step::alarm, "IOCTL ERROR", &Grammar::failure),
        row(Source::reported, Step::alarm, " 断开报警输出时, 报警输入正常", &Grammar::alarm_idle,
            "good"),
        row(Source::reported, Step::alarm, " 断开报警输出时, 报警输入为 {x} ，报警输入应为 0",
            &Grammar::alarm_idle, "bad"),
        row(Source::reported, Step::alarm, " 报警输出为 {x}, 报警输入为 {x} ，报警输入应为 {x}",
            &Grammar::alarm_mismatch),
        row(Source::reported, Step::alarm, "成功 {d}, 失败 {d}", &Grammar::alarm_result),
    };
}

// RTC.
std::vector<Grammar::Row> Grammar::rtc_rows() {
    return {
        row(Source::reported, Step::rtc, "{d}-{d}-{d} {d}:{d}:{d}", &Grammar::clock),
        row(Source::reported, Step::rtc, "时钟时间 {d}-{d}-{d} {d}:{d}:{d}", &Grammar::clock,
            "clock"),
        row(Source::reported, Step::rtc, "系统时间 {d}-{d}-{d} {d}:{d}:{d}", &Grammar::clock,
            "system"),
    };
}

// USB.
std::vector<Grammar::Row> Grammar::usb_rows() {
    return {
        row(Source::reported, Step::usb, "/dev/{w} 剩余空间 = {d}M", &Grammar::usb_disk),
        row(Source::reported, Step::usb, "Failed to statfs{s}", &Grammar::usb_failed),
        row(Source::reported, Step::usb, "没有接usb", &Grammar::usb_none),
        row(Source::printed, Step::usb, "后面板上面的USB口插着的U盘是3.0U盘", &Grammar::usb_rear,
            "upper", "3.0"),
        row(Source::printed, Step::usb, "后面板上面的USB口插着的U盘是2.0U盘或者鼠标",
            &Grammar::usb_rear, "upper", "2.0"),
        row(Source::printed, Step::usb, "后面板上面的USB口没有插U盘", &Grammar::usb_rear, "upper",
            "none"),
        row(Source::printed, Step::usb, "后面板下面的USB口插着的U盘是3.0U盘", &Grammar::usb_rear,
            "lower", "3.0"),
        row(Source::printed, Step::usb, "后面板下面的USB口插着的U盘是2.0U盘或者鼠标",
            &Grammar::usb_rear, "lower", "2.0"),
        row(Source::printed, Step::usb, "后面板下面的USB口没有插U盘", &Grammar::usb_rear, "lower",
            "none"),
        row(Source::printed, Step::usb,
            "3.0usb插3.0U盘测试成功,请在10s内将2.0U盘插入3.0usb进行测试", &Grammar::usb_again),
        row(Source::error, Step::usb, "/dev: {s}", &Grammar::failure),
    };
}

// SATA and miniSAS.
std::vector<Grammar::Row> Grammar::disk_rows() {
    return {
        row(Source::reported, Step::sata, "设备有{d}个sata口", &Grammar::disk_ports, "sata.ports"),
        row(Source::reported, Step::sata, "设备有{d}个miniSAS口", &Grammar::disk_ports,
            "minisas.ports"),
        row(Source::reported, Step::sata, "/dev/{w} 不存在", &Grammar::disk_absent),
        row(Source::reported, Step::sata, "/dev/{w} 无法获取硬盘容量", &Grammar::disk_without_size),
        row(Source::reported, Step::sata, "/dev/{w}", &Grammar::disk_begins),
        row(Source::reported, Step::sata, "序列号    :{s}", &Grammar::disk_text, "serial"),
        row(Source::reported, Step::sata, "型号      :{s}", &Grammar::disk_text, "model"),
        row(Source::reported, Step::sata, "固件版本  :{s}", &Grammar::disk_text, "firmware"),
        row(Source::reported, Step::sata, "硬盘容量  :{d}GB", &Grammar::disk_size),
        row(Source::printed, Step::sata, "send IDENTIFY DEVICE command, return {d}",
            &Grammar::failure),
        row(Source::printed, Step::sata, "invalid devName", &Grammar::failure),
        row(Source::printed, Step::sata, "Can not open {s} ", &Grammar::failure),
        row(Source::printed, Step::sata, "Can not get {s} size ", &Grammar::failure),
        row(Source::printed, Step::sata, "没有找到miniSAS口 ", &Grammar::minisas_absent),
        row(Source::error, Step::sata, "scandir fail, errno = {d}({s})", &Grammar::failure),
    };
}

// RS-485.
std::vector<Grammar::Row> Grammar::rs485_rows() {
    return {
        row(Source::reported, Step::rs485, "正确:    {d}字节  ", &Grammar::rs485_first, "complete"),
        row(Source::reported, Step::rs485, "错误:    {d}字节 ", &Grammar::rs485_second, "complete"),
        row(Source::reported, Step::rs485, "发送  {d}字节成功", &Grammar::rs485_first, "timeout"),
        row(Source::reported, Step::rs485, "    {d}字节失败 ", &Grammar::rs485_second, "timeout"),
        row(Source::printed, Step::rs485, "open {w} failed", &Grammar::failure),
        row(Source::printed, Step::rs485, "no more data can write in 5 seconds,exit ",
            &Grammar::failure),
        row(Source::error, Step::rs485, "select(): {s}", &Grammar::failure),
        row(Source::error, Step::rs485, "read select(): {s}", &Grammar::failure),
    };
}

// Board information.
std::vector<Grammar::Row> Grammar::info_rows() {
    return {
        row(Source::reported, Step::info, "无法识别的CPLD信息({s})", &Grammar::failure),
        row(Source::reported, Step::info, "设备类型 : {s}({s})", &Grammar::info_model),
        row(Source::reported, Step::info, "面板类型:{s}", &Grammar::text_fact, "info.panel"),
        row(Source::reported, Step::info, "ARM主频  : {s}", &Grammar::text_fact, "info.arm"),
        row(Source::reported, Step::info, "内存频率 : {s}", &Grammar::text_fact,
            "info.memory_frequency"),
        row(Source::reported, Step::info, "内存大小 : {s}", &Grammar::text_fact, "info.memory"),
        row(Source::reported, Step::info, "FLASH大小: {s}", &Grammar::text_fact, "info.flash"),
        row(Source::reported, Step::info, "CPLD版本 : {s}年{s}月{s}日", &Grammar::text_fact,
            "info.cpld", "-"),
        row(Source::reported, Step::info, "报警 I/O : {s}", &Grammar::text_fact, "info.alarm_io"),
    };
}

// Summary.
std::vector<Grammar::Row> Grammar::summary_rows() {
    return {
        row(Source::reported, Step::summary,
            "----------------------------------------------------------------", &Grammar::rule),
        row(Source::reported, Step::summary, "Q7测试结果如下:", &Grammar::summary_begins),
        row(Source::reported, Step::summary, "USB口       : {d}  ", &Grammar::number_fact,
            "usb.found"),
        row(Source::reported, Step::summary, "SATA口      : {d}  ", &Grammar::number_fact,
            "sata.found"),
        row(Source::reported, Step::summary, "网络状态      : 成功  ", &Grammar::word_fact,
            "summary.network", "good"),
        row(Source::reported, Step::summary, "网络状态      : 失败  ", &Grammar::word_fact,
            "summary.network", "bad"),
        row(Source::reported, Step::summary, "485口       : 成功  ", &Grammar::word_fact,
            "summary.rs485", "good"),
        row(Source::reported, Step::summary, "485口       : 失败  ", &Grammar::word_fact,
            "summary.rs485", "bad"),
        row(Source::reported, Step::summary, "报警口      : 成功  ", &Grammar::word_fact,
            "summary.alarm", "good"),
        row(Source::reported, Step::summary, "报警口      : 失败  ", &Grammar::word_fact,
            "summary.alarm", "bad"),
        row(Source::reported, Step::summary, "USB口       : 成功  ", &Grammar::word_fact,
            "summary.usb", "good"),
        row(Source::reported, Step::summary, "USB口       : 失败  ", &Grammar::word_fact,
            "summary.usb", "bad"),
        row(Source::reported, Step::summary, "SATA口       : 成功  ", &Grammar::word_fact,
            "summary.sata", "good"),
        row(Source::reported, Step::summary, "SATA口       : 端口{s}无连接",
            &Grammar::sata_missing),
        row(Source::printed, Step::summary, "miniSAS口正常", &Grammar::word_fact, "summary.minisas",
            "good"),
        row(Source::printed, Step::summary, "miniSAS口异常", &Grammar::word_fact, "summary.minisas",
            "bad"),
        row(Source::reported, Step::summary, "Rtc时钟       : 由检测人员判断  ",
            &Grammar::word_fact, "summary.rtc", "person"),
        row(Source::reported, Step::summary, "测试结果:  OK!", &Grammar::console_ok),
        row(Source::printed, Step::summary, "网络状态    : error occured!  ",
            &Grammar::console_faults, "summary.network"),
        row(Source::printed, Step::summary, "485口       : error occured!  ",
            &Grammar::console_faults, "summary.rs485"),
        row(Source::printed, Step::summary, "报警口      : error occured!  ",
            &Grammar::console_faults, "summary.alarm"),
        row(Source::printed, Step::summary, "Rtc时钟     : error occured!  ",
            &Grammar::console_faults, "summary.rtc"),
        row(Source::printed, Step::summary, "USB口       : error occured!  ",
            &Grammar::console_faults, "summary.usb"),
        row(Source::printed, Step::summary, "SATA口      : 端口{s}无连接", &Grammar::sata_missing),
    };
}

// End.
std::vector<Grammar::Row> Grammar::end_rows() {
    return {
        row(Source::reported, Step::end, "测试结束", &Grammar::run_end),
        row(Source::reported, Step::end, "Q7TESTEND", &Grammar::net_end),
        row(Source::printed, Step::end, "测试结束,系统将要重新启动,并恢复出厂设置",
            &Grammar::run_end, "restart"),
        row(Source::printed, Step::end, "remove /dav2/devCfg.bin ERROR", &Grammar::word_fact,
            "sequence.config", "missing"),
        row(Source::printed, Step::end, "remove /dav2/devCfg_backup.bin ERROR", &Grammar::word_fact,
            "sequence.config_backup", "missing"),
        row(Source::printed, Step::end, "failed to open watchdog", &Grammar::failure),
        row(Source::printed, Step::end, "set watchdog timeout failed", &Grammar::failure),
    };
}

// Port multipliers.
std::vector<Grammar::Row> Grammar::pmp_rows() {
    return {
        row(Source::printed, Step::pmp, "sata_port_num = {d} ", &Grammar::number_fact, "pmp.ports"),
        row(Source::printed, Step::pmp, "硬盘个数为{d},请检查CPLD是否正确烧写", &Grammar::failure),
        row(Source::printed, Step::pmp, "open /dev/{w} fail!", &Grammar::known),
        row(Source::printed, Step::pmp, "open /dev/{w} success!", &Grammar::chip_disk),
        row(Source::printed, Step::pmp, "test..{d}\r", &Grammar::chip_number),
        row(Source::printed, Step::pmp, "INFO: JMB39X device exist", &Grammar::known),
        row(Source::printed, Step::pmp, "INFO: JMB39X CHIP ID = 32h, Revision ID = {s}",
            &Grammar::chip_text, "revision"),
        row(Source::printed, Step::pmp, "INFO: Binfile ID = {s}", &Grammar::known),
        row(Source::printed, Step::pmp, "INFO: Revision ID = {s}", &Grammar::known),
        row(Source::printed, Step::pmp, "INFO: Bonding = {s}", &Grammar::chip_text, "bonding"),
        row(Source::printed, Step::pmp, "INFO: Binfile length = {d} bytes", &Grammar::chip_text,
            "image", "number", "bytes"),
        row(Source::printed, Step::pmp, "INFO: Flash is found by chk{d}", &Grammar::known),
        row(Source::printed, Step::pmp, "INFO: Verify flash #{d}", &Grammar::known),
        row(Source::printed, Step::pmp, "INFO: Total verify size = {d}", &Grammar::known),
        row(Source::printed, Step::pmp, "INFO: Verify complete", &Grammar::known),
        row(Source::printed, Step::pmp, "INFO: Flash #{d} is the same as binary file",
            &Grammar::chip_flash, "same"),
        row(Source::printed, Step::pmp, "INFO: Upload flash #{d}", &Grammar::known),
        row(Source::printed, Step::pmp, "INFO: Total upload size = {d}", &Grammar::known),
        row(Source::printed, Step::pmp, "INFO: Upload complete", &Grammar::chip_flash, "updated"),
        row(Source::printed, Step::pmp, "INFO: Finish", &Grammar::known),
        row(Source::printed, Step::pmp, "WRN : chkbinfile, revision ID is mismatch ({s})",
            &Grammar::failure),
        row(Source::printed, Step::pmp, "      continue!{s}", &Grammar::continued),
        row(Source::printed, Step::pmp, "WRN : chkflashsts, chk1 fail, try chk0 ({s})",
            &Grammar::known),
        row(Source::printed, Step::pmp, "WRN : verifycode, verify fail ({s}", &Grammar::known),
        row(Source::printed, Step::pmp, "WRN : verifycode, verify not complete", &Grammar::known),
        row(Source::printed, Step::pmp, ".{s}", &Grammar::continued),
        row(Source::printed, Step::pmp, "ERR{s}", &Grammar::chip_error),
        row(Source::printed, Step::pmp, "update the firmware success, now reset the jmb321!\r",
            &Grammar::count, "chip_resets"),
        row(Source::printed, Step::pmp, "测试结果如下", &Grammar::known),
        row(Source::printed, Step::pmp, "Chip{d} 正常", &Grammar::chip_state, "good"),
        row(Source::printed, Step::pmp, "Chip{d} 发生错误", &Grammar::chip_state, "error"),
        row(Source::printed, Step::pmp, "Chip{d} 未进行测试", &Grammar::chip_state, "not-tested"),
    };
}

const Grammar::Table& Grammar::table() {
    static const Table whole([] {
        std::vector<Row> rows;
        for (const auto part : {start_rows, heading_rows, anywhere_rows, panel_rows, network_rows,
                                alarm_rows, rtc_rows, usb_rows, disk_rows, rs485_rows, info_rows,
                                summary_rows, end_rows, pmp_rows}) {
            std::vector<Row> more = part();
            std::move(more.begin(), more.end(), std::back_inserter(rows));
        }
        return rows;
    }());
    return whole;
}

// Matching.

void Grammar::take(Channel channel, const TextLine& line) {
    line_ = &line;
    channel_ = channel;
    offset_ = 0;
    pieces_ = evidence_.pieces.size();
    for (const Fragment& fragment : line.fragments) {
        Piece piece;
        piece.line = fragment.line;
        piece.time_us = fragment.time_us;
        piece.channel = channel;
        piece.command = command_.number;
        piece.text = gbk_to_utf8(line.bytes.substr(fragment.begin, fragment.end - fragment.begin));
        evidence_.pieces.push_back(std::move(piece));
    }
    bool explained = line.bytes.empty();
    if (line.bytes.size() > kLongestLine) {
        explained = false;
    } else if (!explained && channel == Channel::record) {
        explained = match_rows(Source::reported, line.bytes);
    } else if (!explained && channel == Channel::err) {
        explained = match_rows(Source::error, line.bytes);
    } else if (!explained) {
        explained = match_rows(Source::printed, line.bytes)
                    || (!two_channels() && match_rows(Source::reported, line.bytes));
    }
    if (!explained) find(Finding::Kind::unexplained);
    const std::string step = channel == Channel::err ? std::string{} : prefixed(name_of(current()));
    for (std::size_t i = pieces_; i < evidence_.pieces.size(); ++i)
        evidence_.pieces[i].step = step;
}

void Grammar::peek(Channel channel, const TextLine& line) {
    line_ = &line;
    channel_ = channel;
    if ((channel == Channel::record) != two_channels() || channel == Channel::err) return;
    for (const Row& row : table().rows) {
        if (row.act == &Grammar::heading && row.pattern.match(line.bytes, captures_)) heading(row);
    }
}

bool Grammar::match_rows(Source source, std::string_view line) {
    const auto byte = static_cast<unsigned char>(line.front());
    for (const std::size_t i : table().by_byte[byte]) {
        const Row& row = table().rows[i];
        if (row.source == source && row.pattern.match(line, captures_) && (this->*row.act)(row)) {
            return true;
        }
    }
    return false;
}

// The rest of the line, from a capture on, as a line of its own.
bool Grammar::match_part(Source source, std::string_view line, std::size_t offset) {
    if (line.empty()) return true;
    offset_ += offset;
    if (match_rows(source, line)) return true;
    if (source == Source::printed || two_channels()) return false;
    return match_rows(Source::printed, line);
}

Step Grammar::current() const {
    const bool printed_alone = two_channels() && channel_ == Channel::out;
    return printed_alone ? now_.printed_step : now_.step;
}

// Whether a row may stand at this place of its channel. Printed lines of net mode have no headings:
// they may only follow each other in the order of the steps.
bool Grammar::may_stand(const Row& row) {
    if (two_channels() && channel_ == Channel::out) {
        if (row.step < now_.printed_step) return false;
        now_.printed_step = row.step;
        return true;
    }
    return row.step == now_.step;
}

// Facts.

std::string Grammar::prefixed(std::string_view name) const {
    std::string prefix = command_.prefix;
    if (repetition_ > 1) prefix += "repeat." + std::to_string(repetition_) + ".";
    return prefix + std::string(name);
}

bool Grammar::add(std::string name, Value value, const char* unit, int line, bool derived,
                  std::string doubt) {
    name = prefixed(name);
    if (!evidence_.places.emplace(name, evidence_.facts.size()).second) return false;
    const std::size_t skip = command_.prefix.size()
                             + (repetition_ > 1 ? prefixed("").size() - command_.prefix.size() : 0);
    const std::string group = name.substr(skip, name.find('.', skip) - skip);
    Fact fact;
    fact.step = prefixed(group == "minisas" ? "sata" : group == "sequence" ? "end" : group);
    fact.name = std::move(name);
    fact.value = std::move(value);
    fact.unit = unit;
    fact.line = line;
    fact.derived = derived;
    fact.doubt = std::move(doubt);
    evidence_.facts.push_back(std::move(fact));
    return true;
}

std::size_t Grammar::piece_at(std::size_t offset) const {
    std::size_t place = 0;
    while (place + 1 < line_->fragments.size() && line_->fragments[place].end <= offset)
        ++place;
    return pieces_ + place;
}

void Grammar::attach(std::size_t piece, std::size_t fact) {
    Piece& target = evidence_.pieces[piece];
    target.kind = Piece::Kind::fact;
    target.facts.push_back(fact);
}

bool Grammar::add_here(const std::string& name, Value value, const char* unit) {
    const std::size_t piece = piece_at(offset_);
    if (!add(name, std::move(value), unit, evidence_.pieces[piece].line)) return false;
    attach(piece, evidence_.facts.size() - 1);
    return true;
}

bool Grammar::add_at(std::size_t capture, const std::string& name, Value value, const char* unit) {
    const std::size_t piece = piece_at(offset_ + captures_[capture].at);
    if (!add(name, std::move(value), unit, evidence_.pieces[piece].line)) return false;
    attach(piece, evidence_.facts.size() - 1);
    return true;
}

void Grammar::derive(const std::string& name, Value value, int line, const char* unit) {
    add(name, std::move(value), unit, line, true);
}

// The line at hand is a finding.
void Grammar::find(Finding::Kind kind) {
    Finding finding;
    finding.kind = kind;
    finding.command = command_.number;
    finding.line = evidence_.pieces[pieces_].line;
    finding.channel = channel_;
    if (channel_ != Channel::err) finding.step = prefixed(name_of(current()));
    finding.text = gbk_to_utf8(line_->bytes);
    for (std::size_t i = pieces_; i < evidence_.pieces.size(); ++i) {
        evidence_.pieces[i].kind =
            kind == Finding::Kind::unexplained ? Piece::Kind::unexplained : Piece::Kind::failure;
    }
    evidence_.findings.push_back(std::move(finding));
}

void Grammar::see_step(Step step) {
    const Fragment& place = line_->fragments.front();
    if (!evidence_.steps.empty() && evidence_.steps.back().command == command_.number) {
        evidence_.steps.back().finished = true;
    }
    evidence_.steps.push_back(
        {command_.number, prefixed(name_of(step)), place.line, place.time_us, false});
    now_.step = step;
    now_.seen.push_back(step);
    now_.step_names.emplace_back(name_of(step));
    if (now_.first_step_line == 0) now_.first_step_line = place.line;
}

// Acts that many rows share.

bool Grammar::known(const Row& row) { return may_stand(row); }

// Whatever was going on, such a text tells of a fault.
bool Grammar::failure(const Row& row) {
    if (two_channels() && channel_ == Channel::out && row.step > now_.printed_step) {
        now_.printed_step = row.step;
    }
    find(Finding::Kind::failure);
    return true;
}

bool Grammar::lost(const Row&) {
    find(Finding::Kind::lost_record);
    return true;
}

bool Grammar::interrupted(const Row&) {
    find(Finding::Kind::interrupted);
    return true;
}

// Of several places, joined by row.second.
bool Grammar::text_fact(const Row& row) {
    if (!may_stand(row)) return false;
    std::string value;
    for (const Capture& capture : captures_)
        value += (value.empty() ? "" : row.second) + gbk_to_utf8(capture.text);
    return add_at(0, row.first, value);
}

bool Grammar::number_fact(const Row& row) {
    return may_stand(row) && add_at(0, row.first, captures_[0].number, row.unit);
}

bool Grammar::word_fact(const Row& row) {
    return may_stand(row) && add_here(row.first, std::string(row.second));
}

bool Grammar::count(const Row& row) {
    if (!may_stand(row)) return false;
    const std::string_view name = row.first;
    ++(name == "unknown_keys"    ? now_.unknown_keys
       : name == "other_frames"  ? now_.other_frames
       : name == "read_failures" ? now_.read_failures
                                 : now_.chip_resets);
    return true;
}

// Takes what stands behind this text as a line of its own.
bool Grammar::continued(const Row& row) {
    if (!may_stand(row)) return false;
    const Capture rest = captures_[0];
    const std::size_t skip = std::min(rest.text.find_first_not_of('.'), rest.text.size());
    return match_part(row.source, rest.text.substr(skip), rest.at + skip);
}

}  // namespace station
